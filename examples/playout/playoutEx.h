// Exceptions of the playout.
#pragma once

#include <zvbase/zvbase.h>

#include <stdexcept>
#include <string>

/// Base class of the playout's exceptions. They can be caught as `Zv::ExBase`, like all of the
/// library, and as `std::runtime_error`. Long texts are cut in the middle, so that a reason has
/// room behind a name of any length.
class PlayoutEx : public Zv::ExBase
{
public:
    class Input;
    class Output;
    class NotConnected;
    class NotStarted;
    class NeighbourFailed;
    class Client;
    class Show;
    class Interrupted;
    class Fault;
    class NoAnswer;

    using ExBase::ExBase;
};

/// "cannot read in.wav: No such file or directory"
class PlayoutEx::Input : public std::runtime_error, public PlayoutEx
{
public:
    Input(char const *file, int line, char const *path, char const *reason);
    ZV_EXCEPTION_MEMBERS(Input)
};

/// "cannot write out.wav: No space left on device"
class PlayoutEx::Output : public std::runtime_error, public PlayoutEx
{
public:
    Output(char const *file, int line, char const *path, char const *reason);
    ZV_EXCEPTION_MEMBERS(Output)
};

/// "player:out is not connected"
class PlayoutEx::NotConnected : public std::runtime_error, public PlayoutEx
{
public:
    NotConnected(char const *file, int line, char const *device, char const *stream);
    ZV_EXCEPTION_MEMBERS(NotConnected)
};

/// "fader was pushed into, but not started: it is not in the sequence"
class PlayoutEx::NotStarted : public std::runtime_error, public PlayoutEx
{
public:
    NotStarted(char const *file, int line, char const *device);
    ZV_EXCEPTION_MEMBERS(NotStarted)
};

/// "fader gave up: a device at its streams has failed"
class PlayoutEx::NeighbourFailed : public std::runtime_error, public PlayoutEx
{
public:
    NeighbourFailed(char const *file, int line, char const *device);
    ZV_EXCEPTION_MEMBERS(NeighbourFailed)
};

/// Failure that the client finds. The text says everything.
class PlayoutEx::Client : public std::runtime_error, public PlayoutEx
{
public:
    Client(char const *file, int line, char const *text);
    ZV_EXCEPTION_MEMBERS(Client)
};

/// "show.xml:12: Syntax error."
class PlayoutEx::Show : public std::runtime_error, public PlayoutEx
{
public:
    Show(char const *file, int line, char const *path, int lineOfShow, char const *reason);
    ZV_EXCEPTION_MEMBERS(Show)
};

/// "interrupted", because a signal has asked for a stop
class PlayoutEx::Interrupted : public std::runtime_error, public PlayoutEx
{
public:
    Interrupted(char const *file, int line);
    ZV_EXCEPTION_MEMBERS(Interrupted)
};

/// "recorder fails at "start", as --fault asks"
class PlayoutEx::Fault : public std::runtime_error, public PlayoutEx
{
public:
    Fault(char const *file, int line, char const *device, char const *phase);
    ZV_EXCEPTION_MEMBERS(Fault)
};

/// Failure because a device hangs. The text says everything.
class PlayoutEx::NoAnswer : public std::runtime_error, public PlayoutEx
{
public:
    NoAnswer(char const *file, int line, char const *text);
    ZV_EXCEPTION_MEMBERS(NoAnswer)
};

/// Returns the reason why a feature is missing: "this program was built without ALSA. …"
std::string describeMissing(char const *system, char const *package);
