#include "resmgt/literals/liStringUtil.h"

#include <locale>
#include <sstream>

namespace Zv {

namespace {

template <class Number>
LiString convert(Number number)
{
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    stream << number;
    return LiString(stream);
}

} // namespace

LiString LiStringUtil::convertNb(int number)
{
    return convert(number);
}

LiString LiStringUtil::convertNb(unsigned int number)
{
    return convert(number);
}

LiString LiStringUtil::convertNb(long number)
{
    return convert(number);
}

LiString LiStringUtil::convertNb(unsigned long number)
{
    return convert(number);
}

LiString LiStringUtil::convertNb(float number)
{
    return convert(number);
}

LiString LiStringUtil::convertNb(double number)
{
    return convert(number);
}

} // namespace Zv
