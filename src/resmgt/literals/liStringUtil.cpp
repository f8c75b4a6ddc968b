#include "resmgt/literals/liStringUtil.h"

#include <istream>
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

LiString LiStringParser::readToken(std::istream &stream)
{
    LiString token;
    char c = '\0';
    // std::ws, because the stream may be set not to skip white space.
    if (!(stream >> std::ws).get(c))
        return token;
    if (c != '"') {
        stream.putback(c);
        stream >> token;
        return token;
    }
    while (stream.get(c) && c != '"')
        token += c;
    return stream.fail() ? LiString() : token;
}

} // namespace Zv
