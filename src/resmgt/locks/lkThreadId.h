// The identity of a thread.
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/types.h"

#include <cstddef>
#include <functional>
#include <iosfwd>

namespace Zv {

/// The number of a running thread, or no thread. A plain value; a number is used again once its thread has ended.
class ZVRESMGT_EXPORT LkThreadId
{
public:
    enum ReservedId
    {
        NULL_ID = 0,       ///< no thread
        CURRENT_THREAD = 1 ///< the thread that calls
    };

    LkThreadId(ReservedId id = NULL_ID);
    LkThreadId(unsigned long number) noexcept
        : _number(static_cast<ZvPlatform::ThreadNumber>(number))
    {}

    /// Back to no thread.
    void reset() noexcept { _number = 0; }
    void setCurrentThread();
    bool isCurrentThread() const;
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
    /// "0x" and the number in hexadecimal, 6 wide, filled with the stream's fill character. Leaves the stream's
    /// base at decimal.
    friend ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, LkThreadId const &id);

private:
    ZvPlatform::ThreadNumber _number;
};

} // namespace Zv

template <>
struct std::hash<Zv::LkThreadId>
{
    std::size_t operator()(Zv::LkThreadId const &id) const noexcept
    {
        return std::hash<unsigned long>()(id.getNumber());
    }
};
