// Being stopped from outside.
#pragma once

#include <string>

/// SIGINT, SIGTERM and SIGHUP ask for an orderly stop, instead of ending the process, from
/// `install` on. What cannot be written, to a pipe or beyond a limit, is an error of the call and
/// not the end of the process.
///
/// Some waits cannot be ended in order, such as for a reader of the standard output that does not
/// read. If the process still runs half a second after the signal, or after the time that it has
/// asked for by `beginEnd`, it is ended at once, as if the orderly stop had come to its end: the
/// message is written, the registered files are removed, and the status is that of the signal. A
/// second signal does that, too.
namespace Signals {

void install();
/// Returns the signal that has asked for a stop, 0 while there is none.
int getCaught();
/// The caller ends in order within that many seconds, or within that many seconds after a signal
/// that comes later.
void beginEnd(double seconds);
/// Whether the line on the terminal is incomplete, so that a message needs a new one.
void setLineOpen(bool isOpen);
/// Ends the process with a status, without waiting for threads and without calling destructors.
/// Removes the registered files, unless another thread is putting them in their place.
[[noreturn]] void endWith(int status);
/// Names what is not written if the process is ended at once.
void setOutput(std::string const &path);
/// Returns the message for an output that was not written because of a signal.
std::string getMessage(std::string const &path);
/// From here on the caller reports how the process ends: ending at once writes no message of its
/// own, and no other thread puts the output in its place. Returns whether the output is there.
bool beginReport();

/// While one lives, the process is not ended at once. If the process is being ended, or reports its
/// end, the constructor does not return. One thread at a time.
class Critical
{
public:
    Critical();
    Critical(Critical const &) = delete;
    Critical &operator=(Critical const &) = delete;
    ~Critical();

    /// The output is in its place: ending at once is a success from here on.
    void complete() { _isComplete = true; }

private:
    bool _isComplete = false;
};

/// Files to be removed when the process is ended at once. Call these within a `Critical`.
/// Returns the number by which `forget` knows the file.
int remember(std::string const &path, int descriptor);
void forget(int number);

/// Whether a path leads to an open file. May be called by a signal handler.
bool isFileAt(char const *path, int descriptor);

} // namespace Signals
