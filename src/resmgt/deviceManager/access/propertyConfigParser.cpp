#include "resmgt/deviceManager/access/propertyConfigParser.private.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "zvbase/failures.h"

namespace Zv {

PropertyConfigParser::PropertyConfigParser(LiString const &config) : _tokens(config)
{
    if (_tokens.isColonNext())
        fail("expected device name");
    _deviceName = take();
    takeColon("expected colon after device name");
    LiString name = take();
    while (!_tokens.isEmpty()) {
        _setNames.push_back(name);
        takeColon("expected colon after property set name");
        name = take();
    }
    _propertyName = name;

    ZV_ASSERT(_deviceName != _nullString);
    ZV_ASSERT(_propertyName != _nullString);
}

void PropertyConfigParser::fail(char const *message) const
{
    ZV_THROW(DevMgrEx::PropertySyntaxError, _tokens.complaint(message).getChars());
}

LiString PropertyConfigParser::take()
{
    if (_tokens.isEmpty())
        fail("unexpected end of tokens");
    return _tokens.take();
}

void PropertyConfigParser::takeColon(char const *message)
{
    if (!_tokens.isEmpty() && !_tokens.isColonNext())
        fail(message);
    take();
}

} // namespace Zv
