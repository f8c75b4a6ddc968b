// Writes lines to the trace (applications).
#pragma once

#include "zvbase/exBase.h"
#include "zvbase/lgLine.h"
#include "zvbase/traceLevel.h"

#include <cstddef>
#include <ostream>

namespace Zv {

/// The trace of the process. An object of this class gives the lines of one thread their tag. The
/// `TraceManager` keeps these objects.
///
/// A source file registers a level when it is loaded, and writes with the macros below:
///
///     static Zv::TraceLevel const &traceLevel = *Zv::Trace::registerLevel("Mixer", __FILE__);
///
///     void setGain(double gain)
///     {
///         ZV_TRACE(traceLevel, "the gain is " << gain);
///     }
///
/// A line has this form:
///
/// `   12.345678 Log_Reader_Thread  ../src/mixer.cpp(12): the gain is 0.5`
///
/// It begins with the moment in seconds of the monotonic clock, the tag of the thread, and the
/// place in the source. While a logger runs, the line goes to the writing thread's own queue: the
/// thread takes no lock, allocates no memory, wakes no thread, and waits only if blocking trace is
/// on (`LgLog`). Otherwise the line goes directly to the output (`LgTrace`).
///
/// The environment variable `ZV_TRACE` switches levels when they are registered. It contains names,
/// separated by commas. `*` means all levels. `-name` switches a level off.
///
/// **Threads**: thread-safe.
class ZVBASE_EXPORT Trace
{
public:
    class Entry;

    /// The level of messages to the user of the program. It is on from the start.
    static TraceLevel * const MainTraceLevel;

    /// Returns true if the level is on.
    static bool isEnabled(TraceLevel const &level) noexcept { return level.isEnabled(); }
    /// Returns the level of a name. Makes it if it does not exist. It is never null and never
    /// destroyed. `name` is not copied and must outlive all use of the level. `file` is the
    /// caller's source file. May be called while statics are constructed.
    static TraceLevel *registerLevel(char const *name, char const *file);
    /// Switches a level by name. `*` means all levels. If the level does not exist yet, it gets
    /// this state when it is registered.
    static void setEnabled(char const *name, bool enabled);

    /// Writes the calling thread's tag and the place to `stream`, and returns `stream`. Use it with
    /// an `LgLine`, which sends the line to the log. The macros do both.
    static std::ostream &log(std::ostream &stream, char const *file, int line);

    /// Writes the reason of an exception to the trace, with this place. It does not depend on
    /// levels.
    static void printException(ExBase const &exception, char const *file, int line);

    virtual ~Trace();
    /// Writes the tag of this object's thread and a blank: 15 columns and one. In this class the
    /// tag is "unknown".
    virtual void writeTag(std::ostream &stream) const;

    Trace();

protected:
    Trace(Trace const &) = delete;
    Trace &operator=(Trace const &) = delete;
};

/// Traces "> name" when a block is entered and "< name" when it is left. The level is checked once,
/// by the constructor. Use it through `ZV_TRACE_ENTRY`.
class ZVBASE_EXPORT Trace::Entry
{
public:
    /// `name` and `file` are not copied. They must outlive the object.
    Entry(TraceLevel const &level, char const *name, char const *file, int line);
    ~Entry();
    Entry(Entry const &) = delete;
    Entry &operator=(Entry const &) = delete;

private:
    char const *_name; // null if the level is off
    char const *_file;
    int _line;
};

} // namespace Zv

/// Writes one line if a level is on: `ZV_TRACE(level, "x = " << x);`. If the level is off, this
/// costs one check, and the text is not evaluated. An expression in the text may write trace lines
/// itself.
#define ZV_TRACE(level, ...)                                                                       \
    do {                                                                                           \
        if (::Zv::Trace::isEnabled(level)) [[unlikely]] {                                          \
            ::Zv::LgLine zvTraceLine;                                                              \
            zvTraceLine.begin(__FILE__ "(" ZV_TRACE_STRING(__LINE__) "): ") << __VA_ARGS__;        \
        }                                                                                          \
    } while (false)

/// Makes a text of a macro's number, such as that of the line.
#define ZV_TRACE_STRING(number) ZV_TRACE_STRING_OF(number)
/// For `ZV_TRACE_STRING` alone.
#define ZV_TRACE_STRING_OF(number) #number

/// Traces the begin and the end of the enclosing block, if a level is on.
#define ZV_TRACE_ENTRY(level, name) ::Zv::Trace::Entry zvTraceEntry(level, name, __FILE__, __LINE__)
