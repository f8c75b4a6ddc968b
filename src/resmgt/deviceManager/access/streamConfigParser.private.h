// The stream string: `[device] : stream push [device] : stream`, or `pull`.
#pragma once

#include "resmgt/deviceManager/access/configTokens.private.h"

namespace Zv {

/// Parses in its constructor. A bad string is a `DevMgrEx::ConfigSyntaxError` whose reason is the echo of what was
/// accepted and the complaint.
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

    /// Empty for a stream that was registered under a bare name.
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
