// Identity of a thread (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/types.h"

#include <cstddef>
#include <iosfwd>
#include <typeindex> // std::hash

namespace Zv {

/// Number of a running thread, or no thread. It is a value that can be compared, printed and
/// hashed.
///
///     Zv::LkThreadId const here(Zv::LkThreadId::CURRENT_THREAD);
///     bool const isHere = here.isCurrentThread(); // true
///
/// The system may give the number of a thread that has ended to a new thread.
///
/// **Threads**: a value.
class ZVRESMGT_EXPORT LkThreadId
{
public:
    /// Ids without a number.
    enum ReservedId
    {
        NULL_ID = 0,       ///< no thread
        CURRENT_THREAD = 1 ///< the thread that calls
    };

    /// Becomes no thread or the calling thread.
    LkThreadId(ReservedId id = NULL_ID);
    /// Becomes the thread with that number; 0 means no thread.
    LkThreadId(unsigned long number) noexcept
        : _number(static_cast<ZvPlatform::ThreadNumber>(number))
    {}

    /// Becomes no thread.
    void reset() noexcept { _number = 0; }
    /// Becomes the calling thread.
    void setCurrentThread();
    /// Returns true if this is the number of the calling thread.
    bool isCurrentThread() const;
    /// Returns true if this is no thread.
    bool isNull() const noexcept { return _number == 0; }
    unsigned long getNumber() const noexcept { return _number; }

    friend bool operator==(LkThreadId const &a, LkThreadId const &b) noexcept
    {
        return a._number == b._number;
    }
    friend bool operator<(LkThreadId const &a, LkThreadId const &b) noexcept
    {
        return a._number < b._number;
    }
    /// Writes "0x" and the number in hexadecimal, 6 wide, filled with the stream's fill character.
    /// Leaves the stream's base at decimal.
    friend ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, LkThreadId const &id);

private:
    ZvPlatform::ThreadNumber _number;
};

} // namespace Zv

/// Agrees with `==`.
template <>
struct std::hash<Zv::LkThreadId>
{
    std::size_t operator()(Zv::LkThreadId const &id) const noexcept { return id.getNumber(); }
};
