#include "resmgt/deviceManager/access/seqConfigParser.private.h"

#include "resmgt/deviceManager/access/configTokens.private.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "zvbase/failures.h"

namespace Zv {

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
    State state = State::start;
    for (auto const &token : tokenise(_config)) {
        if (state == State::error)
            fail();
        state = step(state, token);
    }
    if (_parents.empty() || !_parents.back().isEmpty() || state != State::closed)
        fail();
}

/// A name that the end of the string cuts off is dropped.
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
    case State::start:
        return isOpening(token) ? State::group : State::error;
    case State::group:
        return enterGroup(LiString(), token, State::root);
    case State::children:
        return enterGroup(_last, token, State::name);
    case State::root:
    case State::name:
        if (_parents.empty())
            fail();
        _edges.push_back({_parents.back(), _last});
        if (!isName)
            return isOpening(token) ? State::children : State::closed;
        if (state == State::root)
            return State::error;
        _last = token;
        return State::name;
    case State::closed:
        if (_parents.empty())
            fail();
        _parents.pop_back();
        if (isClosing(token))
            return State::closed;
        _last = token;
        return isName ? State::name : State::error;
    case State::error:
        break;
    }
    fail();
}

SeqConfigParser::State SeqConfigParser::enterGroup(LiString const &parent, LiString const &token,
                                                   State next)
{
    _parents.push_back(parent);
    if (isOpening(token) || isClosing(token))
        return State::error;
    _last = token;
    return next;
}

void SeqConfigParser::fail()
{
    ZV_THROW(DevMgrEx::ConfigSyntaxError, nullptr);
}

} // namespace Zv
