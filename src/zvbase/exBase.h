// Root of all exceptions that a caller may handle, and the macros that define them (applications).
#pragma once

#include "zvbase/export.h"

#include <cstddef>

namespace Zv {

/// An exception that keeps its reason, and the source line that has thrown it.
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
///         throw Zv::OsDateEx::ExInvalidDate(__FILE__, __LINE__);
///     } catch (Zv::ExBase const &failure) {
///         std::fprintf(stderr, "%s\n", failure.getDetailedReason());
///     }
///
/// **Threads**: one thread at a time.
class ZVBASE_EXPORT ExBase
{
public:
    /// The largest length of a reason, in bytes.
    static constexpr std::size_t REASON_CAPACITY = 1023;

    /// `file` is the source file that throws, `__FILE__`. It is not copied and must outlive the
    /// exception.
    ExBase(char const *file, int line) noexcept;
    ExBase(ExBase const &) noexcept;
    ExBase &operator=(ExBase const &) noexcept;

    /// Returns what went wrong. Valid as long as this object.
    virtual char const *getReason() const noexcept;
    /// Returns file, line and reason, for logs: `../src/x.cpp(12): reason`.
    virtual char const *getDetailedReason() const noexcept;
    virtual ~ExBase();
    /// Returns a copy of the most derived object, made with `new`. The caller owns it.
    [[nodiscard]] virtual ExBase *clone() const = 0;

    char const *getFile() const noexcept { return _file; }
    int getLine() const noexcept { return _line; }

protected:
    /// Appends `text` to the reason. Does nothing if it is null.
    void setReason(char const *text) noexcept;
    /// Appends a text to the reason, formatted as by `printf`.
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

/// Defines `clone` and `what`, which the classes of all families need.
#define ZV_EXCEPTION_MEMBERS(Class)                                                                \
    [[nodiscard]] Class *clone() const override                                                    \
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
