// The shared body of strings.
#pragma once

#include "resmgt/export.h"
#include "resmgt/smartPtrs/rcBase.h"

#include <cstdint>

namespace Zv {

/// The body that strings share. Only `LiString` works on it, and changes it only while it is the one holder.
class ZVRESMGT_EXPORT LiStringImp : public RCBase<LkCounter<long>>
{
private:
    friend class LiString;

    /// A body of `length` zero bytes with room for `capacity` of them.
    LiStringImp(std::int32_t length, std::int32_t capacity);
    /// Takes over an array made with `new[]`.
    LiStringImp(char *chars, std::int32_t length) noexcept;
    LiStringImp(LiStringImp const &) = delete;
    LiStringImp &operator=(LiStringImp const &) = delete;
    ~LiStringImp() noexcept(false) override;

    std::int32_t _length;   // bytes before the terminator
    std::int32_t _capacity; // bytes that fit before the terminator
    char *_chars;           // capacity + 1 bytes, always terminated
};

} // namespace Zv
