#include "resmgt/deviceManager/access/configTokens.private.h"

namespace Zv {

bool isConfigSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

ConfigTokens::ConfigTokens(LiString const &config)
{
    LiString pending;
    auto const finish = [&] {
        if (!pending.isEmpty())
            _tokens.push_back(pending);
        pending = LiString();
    };
    char const * const characters = config.getChars();
    for (int i = 0; i < config.getLength(); ++i) {
        char const c = characters[i];
        if (c == ':') {
            finish();
            _tokens.push_back(":");
        } else if (isConfigSpace(c)) {
            finish();
        } else {
            pending += c;
        }
    }
    finish();
}

bool ConfigTokens::isColonNext() const
{
    return !isEmpty() && *peek() == ":";
}

LiString ConfigTokens::take()
{
    LiString const &token = _tokens[_next++];
    _echo += token.getChars(); // up to a zero byte, which would end the report as well
    _echo += ' ';
    return token;
}

LiString ConfigTokens::complaint(char const *message) const
{
    return _echo + "[ " + message + " ]";
}

} // namespace Zv
