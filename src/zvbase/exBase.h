// Root of all exceptions that a caller may handle, and the macros that define them (applications).
#pragma once

#include "zvbase/export.h"

#include <cstddef>

namespace Zv {

/// An exception that keeps its reason and the place where it was thrown.
///
/// A family derives from it (`LkEx`, `DevMgrEx`, …). The classes of a family derive from the family
/// and from one standard exception class, except `PriorityEx::ExError`, which has no standard base.
/// So an exception can be caught as its own class, as its family, as the standard class, and as
/// `ExBase`. `ExBase` itself does not derive from `std::exception`.
///
/// The text lies in the object itself. Throwing allocates no memory for it. A text that is too long
/// is cut.
///
///     #include <cstdio>
///
///     try {
///         throw Zv::ExSysError(__FILE__, __LINE__, 5);
///     } catch (Zv::ExBase const &failure) {
///         std::fprintf(stderr, "%s\n", failure.getDetailedReason()); // x.cpp(12): System error 5…
///     }
///
/// **Threads**: one thread at a time.
class ZVBASE_EXPORT ExBase
{
public:
    /// Bytes of text that an exception keeps.
    static constexpr std::size_t REASON_CAPACITY = 1023;

    /// `file` outlives the exception; it is `__FILE__` of the throwing source.
    ExBase(char const *file, int line) noexcept;
    ExBase(ExBase const &) noexcept;
    ExBase &operator=(ExBase const &) noexcept;

    /// What went wrong. Valid as long as this object.
    virtual char const *getReason() const noexcept;
    /// The reason with file and line in front of it, for logs: `../src/x.cpp(12): reason`.
    virtual char const *getDetailedReason() const noexcept;
    virtual ~ExBase();
    /// A copy of the most derived object on the heap. The caller owns it.
    virtual ExBase *clone() const = 0;

    char const *getFile() const noexcept { return _file; }
    int getLine() const noexcept { return _line; }

protected:
    /// Appends to the reason; a null pointer adds nothing.
    void setReason(char const *text) noexcept;
    /// Appends a text formatted as by `printf`.
    [[gnu::format(printf, 2, 3)]] void formatReason(char const *format, ...) noexcept;

private:
    static constexpr std::size_t SITE_CAPACITY = 280;

    char const *_file;
    int _line;
    std::size_t _siteLength;
    std::size_t _length;
    char _text[SITE_CAPACITY + REASON_CAPACITY + 1]; // the site, then the reason
};

} // namespace Zv

/// The two members that the classes of all families have alike.
#define ZV_EXCEPTION_MEMBERS(Class)                                                                \
    Class *clone() const override                                                                  \
    {                                                                                              \
        return new Class(*this);                                                                   \
    }                                                                                              \
    char const *what() const noexcept override                                                     \
    {                                                                                              \
        return getReason();                                                                        \
    }

/// Defines `Family::Class`, an exception class that has no members of its own. `First` and `Second`
/// are its bases, in the order in which they lie in the object. Further arguments are the
/// parameters of its constructor behind file and line. The family declares the class beforehand.
/// The family's source defines the constructor and the destructor, so that the virtual table has
/// one home (`ZV_EXCEPTION_BODY` in zvbase/exBody.private.h).
///
///     class MyEx : public Zv::ExBase
///     {
///     public:
///         class ExNotFound;
///
///         MyEx(char const *file, int line) noexcept;
///     };
///
///     /// Thrown if a directory has no entry of a name. `No entry "name".`
///     ZV_EXCEPTION(, MyEx, ExNotFound, std::runtime_error, MyEx, char const *name);
#define ZV_EXCEPTION(Export, Family, Class, First, Second, ...)                                    \
    class Export Family::Class : public First, public Second                                       \
    {                                                                                              \
    public:                                                                                        \
        Class(char const *file, int line __VA_OPT__(, ) __VA_ARGS__);                              \
        ~Class() override;                                                                         \
        ZV_EXCEPTION_MEMBERS(Class)                                                                \
    }
