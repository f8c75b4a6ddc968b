// Parsers of the strings that configure properties, sequences and streams.
#pragma once

#include "resmgt/literals/liString.h"
#include "zvbase/sequenceContainers.h"

#include <cstddef>

namespace Zv {

/// Returns true for the white space of the C locale. No byte from 0x80 on is white space.
bool isConfigSpace(char c);

/// A cursor over the tokens of a stream or property string. A colon is a token. White space ends a
/// token and is dropped. The accepted tokens are kept for error messages.
class ConfigTokens
{
public:
    explicit ConfigTokens(LiString const &config);

    bool isEmpty() const { return _next == _tokens.size(); }
    /// Returns the next token without accepting it, or null if there is none.
    LiString const *peek() const { return isEmpty() ? nullptr : &_tokens[_next]; }
    bool isColonNext() const;
    /// Accepts the next token and returns it. There must be a next token.
    LiString take();

    /// Returns the text of an error: all that was accepted, then the message in brackets.
    LiString complaint(char const *message) const;

private:
    Vector<LiString> _tokens;
    std::size_t _next = 0;
    LiString _echo;
};

/// Parser of a property string, `device : set : set : property` with any number of sets. The
/// constructor throws `DevMgrEx::PropertySyntaxError`, with what was accepted and the fault, if the
/// string is wrong.
class PropertyConfigParser
{
public:
    explicit PropertyConfigParser(LiString const &config);

    LiString const &getDeviceName() const { return _deviceName; }
    LiString const &getPropertyName() const { return _propertyName; }
    /// Returns the names of the sets, the outermost first.
    Vector<LiString> const &getSetNames() const { return _setNames; }

private:
    [[noreturn]] void fail(char const *message) const;
    LiString take();
    void takeColon(char const *message);

    ConfigTokens _tokens;
    LiString const _nullString;
    LiString _deviceName;
    LiString _propertyName;
    Vector<LiString> _setNames;
};

/// Parser of a sequence string, `( root ( child child ( grandchild ) child ) )`. The constructor
/// throws `DevMgrEx::ConfigSyntaxError` without detail if the string is wrong.
class SeqConfigParser
{
public:
    /// The names of a parent and its child. The name of the root's parent is empty.
    using Edge = Vector<LiString>;

    explicit SeqConfigParser(LiString const &config);

    /// Returns the edges in the order of the string.
    Vector<Edge> const &getEdges() const { return _edges; }

private:
    enum class State
    {
        START,    // nothing was read
        GROUP,    // after the opening bracket
        ROOT,     // after the first name
        CHILDREN, // after the bracket that opens a name's children
        NAME,     // after any other name
        CLOSED,   // after a closing bracket
        WRONG     // the string is wrong
    };

    static Vector<LiString> tokenise(LiString const &config);
    State step(State state, LiString const &token);
    State enterGroup(LiString const &parent, LiString const &token, State next);
    [[noreturn]] static void fail();

    Vector<Edge> _edges;
    LiString _config;
    Vector<LiString> _parents;
    LiString _last;
};

/// Parser of a stream string, `[device] : stream push [device] : stream`, or with `pull`. The
/// constructor throws `DevMgrEx::ConfigSyntaxError`, with what was accepted and the fault, if the
/// string is wrong.
class StreamConfigParser
{
public:
    enum Verb
    {
        UNDEFINED = 0,
        PUSH = 1,
        PULL = 2
    };

    explicit StreamConfigParser(LiString const &config);

    /// Returns the empty string if the stream was registered without a device.
    LiString const &getSourceDevice() const { return _sourceDevice; }
    LiString const &getSourceStream() const { return _sourceStream; }
    LiString const &getSinkDevice() const { return _sinkDevice; }
    LiString const &getSinkStream() const { return _sinkStream; }
    Verb getVerb() const { return _verb; }

private:
    [[noreturn]] void fail(char const *message) const;
    LiString take();
    void takeEnd(LiString &device, LiString &stream, char const *colonMessage);
    void takeVerb();

    LiString const _initValue;
    LiString _sourceDevice;
    LiString _sourceStream;
    LiString _sinkDevice;
    LiString _sinkStream;
    Verb _verb = UNDEFINED;
    ConfigTokens _tokens;
};

} // namespace Zv
