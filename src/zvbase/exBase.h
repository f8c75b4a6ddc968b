// The root of all failures that a caller may handle.
#pragma once

#include "zvbase/export.h"

#include <cstddef>

namespace Zv {

/// A failure with the place where it was thrown and its reason.
///
/// A family derives from it (`LkEx`, `DevMgrEx`, …), and the classes of a family derive from the family and, but
/// for `PriorityEx::ExError`, from one standard exception class: each of them is caught as `ExBase`, as its family
/// and as the standard class alike.
///
/// The text lies in the object itself, so that throwing allocates nothing for it; one that is too long is cut.
/// `ExBase` does not derive from `std::exception`.
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
