#include "resmgt/literals/liUuid.h"

namespace Zv {

LiUuid::LiUuid()
{
    clear();
}

LiUuid::LiUuid(CreateEnum)
{
    create();
}

LiUuid::LiUuid(LiString const &text)
{
    fromString(text);
}

void LiUuid::create()
{
    LiUuidUtil::create(_uuid);
}

void LiUuid::clear()
{
    LiUuidUtil::clear(_uuid);
}

bool LiUuid::isNil() const
{
    return LiUuidUtil::isNil(_uuid);
}

bool LiUuid::equal(LiUuid const &other) const
{
    return LiUuidUtil::equal(_uuid, other._uuid);
}

int LiUuid::compare(LiUuid const &other) const
{
    return LiUuidUtil::compare(_uuid, other._uuid);
}

std::uint64_t LiUuid::hash() const
{
    return LiUuidUtil::hash(_uuid);
}

LiString LiUuid::toString() const
{
    return LiUuidUtil::toString(_uuid);
}

void LiUuid::fromString(LiString const &text)
{
    LiUuidUtil::fromString(_uuid, text);
}

} // namespace Zv
