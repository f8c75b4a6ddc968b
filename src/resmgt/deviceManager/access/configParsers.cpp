#include "resmgt/deviceManager/access/configParsers.private.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "zvbase/failures.h"

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
    _echo += token.getChars(); // up to a zero byte, which ends the report, too
    _echo += ' ';
    return token;
}

LiString ConfigTokens::complaint(char const *message) const
{
    return _echo + "[ " + message + " ]";
}

// ---- The property string: `device : set : set : property`, with any number of sets.

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

// ---- The sequence string: `( root ( child child ( grandchild ) child ) )`.

namespace {

bool isOpening(LiString const &token)
{
    return token == "(";
}

bool isClosing(LiString const &token)
{
    return token == ")";
}

} // namespace

SeqConfigParser::SeqConfigParser(LiString const &config) : _config(config)
{
    State state = State::START;
    for (auto const &token : tokenise(_config)) {
        if (state == State::WRONG)
            fail();
        state = step(state, token);
    }
    if (_parents.empty() || !_parents.back().isEmpty() || state != State::CLOSED)
        fail();
}

/// Splits the string into names and brackets. A name is dropped if the string ends directly after
/// it.
Vector<LiString> SeqConfigParser::tokenise(LiString const &config)
{
    Vector<LiString> tokens;
    LiString name;
    char const * const characters = config.getChars();
    for (int i = 0; i < config.getLength(); ++i) {
        char const c = characters[i];
        bool const isBracket = c == '(' || c == ')';
        if (!isBracket && !isConfigSpace(c)) {
            name += c;
            continue;
        }
        if (!name.isEmpty())
            tokens.push_back(name);
        name = LiString();
        if (isBracket)
            tokens.push_back(c == '(' ? "(" : ")");
    }
    return tokens;
}

SeqConfigParser::State SeqConfigParser::step(State state, LiString const &token)
{
    bool const isName = !isOpening(token) && !isClosing(token);
    switch (state) {
    case State::START:
        return isOpening(token) ? State::GROUP : State::WRONG;
    case State::GROUP:
        return enterGroup(LiString(), token, State::ROOT);
    case State::CHILDREN:
        return enterGroup(_last, token, State::NAME);
    case State::ROOT:
    case State::NAME:
        if (_parents.empty())
            fail();
        _edges.push_back({_parents.back(), _last});
        if (!isName)
            return isOpening(token) ? State::CHILDREN : State::CLOSED;
        if (state == State::ROOT)
            return State::WRONG;
        _last = token;
        return State::NAME;
    case State::CLOSED:
        if (_parents.empty())
            fail();
        _parents.pop_back();
        if (isClosing(token))
            return State::CLOSED;
        _last = token;
        return isName ? State::NAME : State::WRONG;
    case State::WRONG:
        break;
    }
    fail();
}

SeqConfigParser::State SeqConfigParser::enterGroup(LiString const &parent, LiString const &token,
                                                   State next)
{
    _parents.push_back(parent);
    if (isOpening(token) || isClosing(token))
        return State::WRONG;
    _last = token;
    return next;
}

void SeqConfigParser::fail()
{
    ZV_THROW(DevMgrEx::ConfigSyntaxError, nullptr);
}

// ---- The stream string: `[device] : stream push [device] : stream`, or with `pull`.

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
