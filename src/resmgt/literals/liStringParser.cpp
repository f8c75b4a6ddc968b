#include "resmgt/literals/liStringParser.h"

#include <istream>

namespace Zv {

LiString LiStringParser::readToken(std::istream &stream)
{
    LiString token;
    char c = '\0';
    // Also on a stream that does not skip white space by itself.
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
