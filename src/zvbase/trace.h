// Writing to the trace.
#pragma once

#include "zvbase/exBase.h"
#include "zvbase/lgLine.h"
#include "zvbase/traceLevel.h"

#include <cstddef>
#include <ostream>

namespace Zv {

/// The trace of a process, and what tags a thread's lines in it.
///
/// A source file registers its level when it is loaded and writes by the macros below:
///
///     static TraceLevel const &traceLevel = *Trace::registerLevel("MtThread", __FILE__);
///     ...
///     ZV_TRACE(traceLevel, "stopping " << name);
///
/// A line reads
///
///      12.345678 Log_Reader_Thread  ../src/resmgt/threads/mtThread.cpp(12): stopping x
///
/// that is the moment in seconds of the monotonic clock, the thread's tag, the place, the text. While a logger runs,
/// the line goes to the writing thread's own queue: the writer takes no lock, allocates nothing, wakes nobody and
/// waits only when blocking trace is on (`LgLog`). Otherwise it goes straight to the output (`LgTrace`).
///
/// Levels that the environment variable `ZV_TRACE` names are switched on as they are registered: names parted by
/// commas, `*` for all, `-name` to switch one off.
///
/// An object of this class, or of one derived from it, stands for one thread and writes its tag; the `TraceManager`
/// keeps them.
class ZVBASE_EXPORT Trace
{
public:
    class Entry;

    /// Messages to whoever runs the program, on from the start.
    static TraceLevel * const MainTraceLevel;

    static bool isEnabled(TraceLevel const &level) noexcept { return level.isEnabled(); }
    /// The level of that name, made where there is none yet; never null, never destroyed. `name` and `file` outlive
    /// the process's use of the level; `file` only says who asked. Any thread, also while statics are constructed.
    static TraceLevel *registerLevel(char const *name, char const *file);
    /// Switches a level by name; `*` means all. A level that is not registered yet takes its state when it is.
    static void setEnabled(char const *name, bool enabled);

    /// Writes a line's head, the calling thread's tag and the place, and returns the stream for the text. Used with
    /// an `LgLine`, which brings the line into the log; the macros do both.
    static std::ostream &log(std::ostream &stream, char const *file, int line);

    /// Writes an exception's reason to the trace with this place, whatever levels are on.
    static void printException(ExBase const &exception, char const *file, int line);

    virtual ~Trace();
    /// Writes the tag of this object's thread and a blank: 15 columns and one. Here the thread is "unknown".
    virtual void writeTag(std::ostream &stream) const;

    Trace();

protected:
    Trace(Trace const &) = delete;
    Trace &operator=(Trace const &) = delete;
};

/// Traces that a function is entered, "> name", and left, "< name", at a level. Whether the level is on is asked once,
/// at the beginning.
class ZVBASE_EXPORT Trace::Entry
{
public:
    /// `name` and `file` outlive the object.
    Entry(TraceLevel const &level, char const *name, char const *file, int line);
    ~Entry();
    Entry(Entry const &) = delete;
    Entry &operator=(Entry const &) = delete;

private:
    char const *_name; // null where the level is off
    char const *_file;
    int _line;
};

} // namespace Zv

/// Writes one line at a level: `ZV_TRACE(level, "x = " << x);`. While the level is off this costs one test, and the
/// text is not evaluated. Any thread; texts that trace in their turn are allowed.
#define ZV_TRACE(level, ...)                                                                       \
    do {                                                                                           \
        if (::Zv::Trace::isEnabled(level)) [[unlikely]] {                                          \
            ::Zv::LgLine zvTraceLine;                                                              \
            zvTraceLine.begin(__FILE__, __LINE__) << __VA_ARGS__;                                  \
        }                                                                                          \
    } while (false)

/// Traces entering and leaving the enclosing block: `ZV_TRACE_ENTRY(level, "MtThreadWindows::cancel");`
#define ZV_TRACE_ENTRY(level, name) ::Zv::Trace::Entry zvTraceEntry(level, name, __FILE__, __LINE__)
