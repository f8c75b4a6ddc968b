// The shared body of strings.
#pragma once

#include "resmgt/export.h"
#include "resmgt/smartPtrs/rcBase.h"

#include <cstdint>
#include <new>
#include <utility>

namespace Zv {

/// The body that strings share. Only `LiString` works on it, and changes it only while it is the one holder.
class ZVRESMGT_EXPORT LiStringImp : public RCBase<LkCounter<long>>
{
private:
    friend class LiString;

    /// A body of `length` bytes, which the caller fills, with room for `capacity` of them; the terminator is there. It
    /// stands behind its characters, in one array with them.
    static LiStringImp *make(std::int32_t length, std::int32_t capacity);
    /// A body that takes over an array made with `new[]`.
    static LiStringImp *adopt(char *chars, std::int32_t length);

    LiStringImp(char *chars, std::int32_t length, std::int32_t capacity, bool inArray) noexcept;
    LiStringImp(LiStringImp const &) = delete;
    LiStringImp &operator=(LiStringImp const &) = delete;
    ~LiStringImp() noexcept(false) override;

    static void operator delete(LiStringImp *imp, std::destroying_delete_t);

    /// Gives up the array; the body is of no use afterwards.
    char *releaseArray() noexcept { return std::exchange(_chars, nullptr); }

    std::int32_t _length;   // bytes before the terminator
    std::int32_t _capacity; // bytes that fit before the terminator
    bool _inArray;          // the body stands in the array of its characters
    char *_chars;           // capacity + 1 bytes, always terminated
};

} // namespace Zv
