#include "resmgt/deviceManager/access/streamConfigParser.private.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "zvbase/failures.h"

namespace Zv {

StreamConfigParser::StreamConfigParser(LiString const &config) : _tokens(config)
{
    takeEnd(_sourceDevice, _sourceStream, "expected first colon");
    takeVerb();
    takeEnd(_sinkDevice, _sinkStream, "expected second colon");
    if (!_tokens.isEmpty())
        fail("more tokens than expected");

    ZV_ASSERT(_verb != UNDEFINED);
    ZV_ASSERT(_sourceStream != _initValue);
    ZV_ASSERT(_sinkStream != _initValue);
}

void StreamConfigParser::fail(char const *message) const
{
    ZV_THROW(DevMgrEx::ConfigSyntaxError, _tokens.complaint(message).getChars());
}

LiString StreamConfigParser::take()
{
    if (_tokens.isEmpty())
        fail("unexpected end of tokens");
    return _tokens.take();
}

void StreamConfigParser::takeEnd(LiString &device, LiString &stream, char const *colonMessage)
{
    if (!_tokens.isColonNext())
        device = take();
    if (!_tokens.isEmpty() && !_tokens.isColonNext())
        fail(colonMessage);
    take();
    stream = take();
}

void StreamConfigParser::takeVerb()
{
    LiString const * const verb = _tokens.peek();
    if (verb && *verb == "pull")
        _verb = PULL;
    else if (verb && *verb == "push")
        _verb = PUSH;
    else if (verb)
        fail("expected pull/push verb");
    take();
}

} // namespace Zv
