// The tokens of a device string, taken one by one, and the echo of those that were accepted.
#pragma once

#include "resmgt/literals/liString.h"
#include "zvbase/containers.h"

#include <cstddef>

namespace Zv {

/// White space of the C locale: blank, tab, line end, vertical tab, form feed, return. No byte from 0x80 on is one.
bool isConfigSpace(char c);

/// A cursor over the tokens of a stream or property string. A colon is a token of its own; white space is dropped
/// and ends a token; everything else accumulates.
class ConfigTokens
{
public:
    explicit ConfigTokens(LiString const &config);

    bool isEmpty() const { return _next == _tokens.size(); }
    /// The next token, which stays. Null where there is none.
    LiString const *peek() const { return isEmpty() ? nullptr : &_tokens[_next]; }
    bool isColonNext() const;
    /// Accepts the next token and echoes it. There must be one.
    LiString take();

    /// What an error says: the echo of all that was accepted, then the message in brackets.
    LiString complaint(char const *message) const;

private:
    Vector<LiString> _tokens;
    std::size_t _next = 0;
    LiString _echo;
};

} // namespace Zv
