#include "playoutEx.h"

PlayoutEx::Input::Input(char const *file, int line, char const *path, char const *reason)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("cannot read %s: %s", path, reason);
}

PlayoutEx::Output::Output(char const *file, int line, char const *path, char const *reason)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("cannot write %s: %s", path, reason);
}

PlayoutEx::NotConnected::NotConnected(char const *file, int line, char const *device,
                                      char const *stream)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("%s:%s is not connected", device, stream);
}

PlayoutEx::NotStarted::NotStarted(char const *file, int line, char const *device)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("%s was pushed into, but not started: it is not in the sequence", device);
}

PlayoutEx::NeighbourFailed::NeighbourFailed(char const *file, int line, char const *device)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("%s gave up: a device at its streams has failed", device);
}

PlayoutEx::Client::Client(char const *file, int line, char const *text)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    setReason(text);
}

PlayoutEx::Show::Show(char const *file, int line, char const *path, int lineOfShow,
                      char const *reason)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("%s:%d: %s", path, lineOfShow, reason);
}
