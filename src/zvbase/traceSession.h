// Writes the events of the process to a file for the viewers of traces (applications).
#pragma once

#include "zvbase/exBase.h"
#include "zvbase/export.h"
#include "zvbase/objPtr.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace Zv {

/// Exceptions of the trace of events.
class ZVBASE_EXPORT TraceEx : public ExBase
{
public:
    class ExAlreadyOn;
    class ExFile;

    TraceEx(char const *file, int line) noexcept;
};

/// Thrown if a second session is started. "The trace of events is on already."
ZV_EXCEPTION(ZVBASE_EXPORT, TraceEx, ExAlreadyOn, std::logic_error, TraceEx);
/// Thrown if the file cannot be written. `The trace of events "a.json" cannot be written: No space
/// left on device`
ZV_EXCEPTION(ZVBASE_EXPORT, TraceEx, ExFile, std::runtime_error, TraceEx, char const *path,
             int systemError);

/// Writes what `TraceEvents` records, from its construction to its end, to a file of the format
/// "Chrome trace events" in JSON. Perfetto and the tracing page of Chromium open it.
///
///     Zv::TraceSession session("show.json", {.processName = "show"});
///     {
///         Zv::TraceEvents::Slice const slice("show", "play");
///     }
///     session.stop();
///
/// The library records steps of devices, requests on their way, loads and unloads of buffers, beats
/// of a clock, and waits for locks that are longer than a limit. `docs/tracing.md` lists them.
///
/// The file is an array of events. It is complete after each time that events were written to it,
/// which is about 50 times in a second: also if the process ends early, or if the disk is full.
/// Only a process that is killed while it writes can leave the array without its end; the events
/// are whole even then. If the file is a pipe, the end is written by `stop` alone. Viewers accept a
/// file without it.
///
/// If there are more events than can be written, the newest ones are dropped. The file says how
/// many.
///
/// **Threads**: thread-safe. Any thread may stop the session, also while others record events.
///
/// **Blocks**: the constructor and `stop` write to the file. `stop` waits up to a second for a
/// thread that is recording an event.
///
/// In the child of a fork there is no session. What the child records is not written, and the file
/// stays that of the parent.
class ZVBASE_EXPORT TraceSession
{
public:
    /// What a session is to do.
    struct Settings
    {
        /// The name of the process in the viewer.
        std::string processName = "process";
        /// The shortest wait for a lock that is recorded, in seconds.
        double lockWaitLimit = 0.001;
    };

    /// The number of events that can wait to be written.
    static constexpr std::size_t CAPACITY = 8192;

    /// Replaces the file and starts the session. Throws `TraceEx::ExAlreadyOn` if another session
    /// runs, `TraceEx::ExFile` if the file cannot be written, and `ExSysError` if the thread that
    /// writes cannot be started.
    TraceSession(std::string const &path, Settings const &settings);
    explicit TraceSession(std::string const &path);
    /// Stops the session. Failures are dropped.
    ~TraceSession();
    TraceSession(TraceSession const &) = delete;
    TraceSession &operator=(TraceSession const &) = delete;

    /// Writes the rest and ends the session. Does nothing if it has ended. Throws `TraceEx::ExFile`
    /// if events could not be written. The file then ends with the last ones that could.
    void stop();
    /// Returns the number of events that were dropped so far.
    std::uint64_t getNbLost() const;

private:
    class Writer;

    ObjPtr<Writer> _writer;
};

} // namespace Zv
