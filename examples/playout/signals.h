// Orderly stop of the program by signals.
#pragma once

#include <string>

/// From `install` on, SIGINT, SIGTERM and SIGHUP ask for an orderly stop instead of ending the
/// process. A write to a closed pipe or beyond a limit of size is an error of the call and does not
/// end the process.
///
/// Some waits cannot be ended in an orderly way, such as the wait for a reader of the standard
/// output that does not read. If the process still runs half a second after the signal, or after
/// the time that it has set by `beginEnd`, it is ended at once. The message is written, the
/// registered files are removed, and the status is that of the signal, as after an orderly stop. A
/// second signal ends the process at once, too.
namespace Signals {

void install();
/// Does what the first Ctrl-C does. Does nothing if a stop was asked for already.
void askForStop();
/// Returns the signal that has asked for a stop, 0 while there is none.
int getCaught();
/// Sets a function that leaves the terminal as it was. Null for none. It is called first if the
/// process is ended at once, perhaps by a signal handler, and may be called more than once.
void setLeaving(void (*leave)());
/// Gives the caller that many seconds to end in an orderly way. If a signal arrives later, the time
/// begins with it.
void beginEnd(double seconds);
/// Says whether the line on the terminal is incomplete, so that a message needs a new line.
void setLineOpen(bool isOpen);
/// Ends the process with a status, without waiting for threads and without calling destructors.
/// Removes the registered files, unless another thread is putting them in their place.
[[noreturn]] void endWith(int status);
/// Sets the output that the message names if the process is ended at once.
void setOutput(std::string const &path);
/// Returns the message for an output that was not written because of a signal.
std::string getMessage(std::string const &path);
/// Claims the report of how the process ends for the caller. After that, an end at once writes no
/// message, and no other thread can put the output in its place. Waits up to a second for a thread
/// that is doing so. Returns whether the output is in its place. Does not return if the process is
/// being ended at once.
bool beginReport();

/// While a `Critical` exists, the process is not ended at once. If the process is being ended, or
/// reports its end, the constructor does not return. One thread at a time.
class Critical
{
public:
    Critical();
    Critical(Critical const &) = delete;
    Critical &operator=(Critical const &) = delete;
    ~Critical();

    /// Says that the output is in its place. An end at once is a success after this object is
    /// destroyed.
    void complete() { _isComplete = true; }

private:
    bool _isComplete = false;
};

/// Registers a file that is removed if the process is ended at once. Call it while a `Critical`
/// exists. Returns a number for `forget`, or -1 if there is no room or the path is too long.
int remember(std::string const &path, int descriptor);
/// Removes a file from the register. Does nothing for -1.
void forget(int number);

/// Returns whether a path names the open file, and not a link to it. May be called by a signal
/// handler.
bool isFileAt(char const *path, int descriptor);

} // namespace Signals
