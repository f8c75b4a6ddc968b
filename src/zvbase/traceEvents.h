// Records timed events for the viewers of traces (applications).
#pragma once

#include "zvbase/export.h"
#include "zvbase/platform/shared.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Zv {

class TraceRing;
struct TraceRecord;

/// The events that a `TraceSession` writes to its file.
///
/// Slices are what a thread does, and may nest. Spans are slices on a track of their own, such as
/// that of a device, and may end on another thread. Flows connect slices of different threads.
/// Instants and counters have no length.
///
///     Zv::TraceEvents::Slice const slice("mixer", "mix");
///     Zv::TraceEvents::counter("mixer", "channels", 2);
///
/// If no session runs, each operation costs one load and one branch. Otherwise it reads a stamp and
/// writes one record into memory that all threads share. It allocates nothing, takes no lock and
/// makes no system call. If that memory is full, the event is dropped and counted.
///
/// Categories and names are not copied. They must be literals, or exist as long as the process.
/// Other texts are copied. They are cut if they are longer than `TEXT_CAPACITY` bytes together, and
/// the name of a track is cut behind `TRACK_CAPACITY` bytes.
///
/// **Threads**: thread-safe, also while a session starts or stops, on threads that the library does
/// not know, and on threads that are killed.
///
/// **Throws**: nothing.
class ZVBASE_EXPORT TraceEvents
{
public:
    class Slice;
    class LockWait;

    static constexpr std::size_t TEXT_CAPACITY = 112; ///< bytes
    static constexpr std::size_t TRACK_CAPACITY = 56; ///< bytes

    /// Returns true while a session runs.
    static bool isOn() noexcept
    {
        // Not of the type `Shared`: the simulated threads need not switch here, since no
        // result of the library depends on the value.
        return __atomic_load_n(&_isOn, __ATOMIC_RELAXED);
    }

    /// Records that something has happened on this thread. `value` is shown with it.
    static void instant(char const *category, char const *name, std::string_view detail = {},
                        std::int64_t value = 0) noexcept
    {
        if (isOn()) [[unlikely]]
            writeInstant(category, name, detail, value);
    }
    /// Records the value of a counter from this moment on. Counters of one name are one curve.
    static void counter(char const *category, char const *name, std::int64_t value) noexcept
    {
        if (isOn()) [[unlikely]]
            writeCounter(category, name, value);
    }
    /// Sets the name under which the calling thread appears, in this and all later sessions. The
    /// name is cut behind 31 bytes. Threads of the library have the name of their `MtThread`.
    static void nameThread(std::string_view name) noexcept;

    TraceEvents() = delete;

private:
    friend class TraceFlow;
    friend class TraceSession;
    friend class TraceSpan;

    static void writeInstant(char const *category, char const *name, std::string_view detail,
                             std::int64_t value) noexcept;
    static void writeCounter(char const *category, char const *name, std::int64_t value) noexcept;
    static std::uint64_t beginSpan(char const *category, char const *name, std::string_view track,
                                   std::string_view detail) noexcept;
    static void endSpan(std::uint64_t id) noexcept;
    static std::uint64_t readStamp() noexcept;
    static std::int64_t readClock() noexcept;
    static void setOn(bool on) noexcept { __atomic_store_n(&_isOn, on, __ATOMIC_SEQ_CST); }

    static bool _isOn;
    static ZvPlatform::Shared<unsigned>
        _session; // the number of the present one, or of the last one
    static ZvPlatform::Shared<TraceRing *> _ring;       // of the first session, and never deleted
    static ZvPlatform::Shared<std::int64_t> _waitLimit; // of `LockWait`, in ticks of the clock
};

/// What the calling thread does from the construction to the destruction of this object.
///
/// **Threads**: one thread constructs and destroys it.
class ZVBASE_EXPORT TraceEvents::Slice
{
public:
    /// `detail` is shown with the slice, and must exist as long as this object.
    Slice(char const *category, char const *name, std::string_view detail = {}) noexcept
    {
        if (isOn()) [[unlikely]]
            begin(category, name, detail);
    }
    ~Slice()
    {
        if (_begin) [[unlikely]]
            write();
    }
    Slice(Slice const &) = delete;
    Slice &operator=(Slice const &) = delete;

    /// Returns true if the slice is going to be recorded.
    bool isRecorded() const noexcept { return _begin != 0; }
    /// Shows a number with the slice. `name` must be a literal.
    void setValue(char const *name, std::int64_t value) noexcept
    {
        _valueName = name;
        _value = value;
    }

private:
    friend class TraceFlow;
    friend class TraceEvents::LockWait;

    void begin(char const *category, char const *name, std::string_view detail) noexcept;
    void write() noexcept;

    std::uint64_t _begin = 0; // the others are set only if this is not 0
    char const *_category;
    char const *_name;
    std::string_view _detail;
    std::uint64_t _flow;
    std::uint8_t _kind;
    char const *_valueName;
    std::int64_t _value;
};

/// A wait for a lock. Construct it when the lock is found to be taken, and destroy it when the
/// thread has the lock. The wait is recorded if it was longer than the limit of the session.
///
///     Zv::TraceEvents::LockWait const wait("my own spin lock");
class ZVBASE_EXPORT TraceEvents::LockWait
{
public:
    /// `lock` is the lock's name, which must exist as long as this object.
    explicit LockWait(char const *lock) noexcept : _slice("lock", "wait", lock)
    {
        if (_slice.isRecorded()) [[unlikely]]
            _since = readClock();
    }
    ~LockWait()
    {
        if (_slice.isRecorded()) [[unlikely]]
            dropIfShort();
    }
    LockWait(LockWait const &) = delete;
    LockWait &operator=(LockWait const &) = delete;

private:
    void dropIfShort() noexcept;

    Slice _slice;
    std::int64_t _since = 0;
};

/// A slice on a track of its own. It may end on another thread than it began. Spans of one track
/// that overlap are shown in several rows.
///
///     Zv::TraceSpan step;
///     step.begin("device", "start", "camera");
///     step.end();
///
/// **Threads**: one thread at a time.
class ZVBASE_EXPORT TraceSpan
{
public:
    TraceSpan() = default;
    /// The copy of a span has not begun.
    TraceSpan(TraceSpan const &) noexcept {}
    TraceSpan &operator=(TraceSpan const &) = delete;
    /// Ends the span if it has begun.
    ~TraceSpan() { end(); }

    /// Begins the span. Does nothing if no session runs. `track` is the name of the track.
    void begin(char const *category, char const *name, std::string_view track,
               std::string_view detail = {}) noexcept
    {
        if (TraceEvents::isOn()) [[unlikely]]
            _id = TraceEvents::beginSpan(category, name, track, detail);
    }
    /// Ends the span. Does nothing if it has not begun.
    void end() noexcept
    {
        if (_id) [[unlikely]]
            finish();
    }

private:
    void finish() noexcept;

    std::uint64_t _id = 0;
};

/// A flow from slice to slice, such as the way of a request from its sender to its completion. The
/// destructor ends it, in a slice of its own.
///
///     Zv::TraceFlow flow;
///     {
///         Zv::TraceEvents::Slice slice("mixer", "send");
///         flow.startIn(slice);
///     }
///     {
///         Zv::TraceEvents::Slice slice("mixer", "receive"); // perhaps on another thread
///         flow.passThrough(slice);
///     }
///
/// **Threads**: one thread at a time.
class ZVBASE_EXPORT TraceFlow
{
public:
    TraceFlow() = default;
    /// The copy of a flow is not started.
    TraceFlow(TraceFlow const &) noexcept {}
    TraceFlow &operator=(TraceFlow const &) noexcept { return *this; }
    ~TraceFlow() { end(); }

    /// Starts the flow in a slice. Does nothing if the slice is not recorded, or if the flow has
    /// started already.
    void startIn(TraceEvents::Slice &slice) noexcept
    {
        if (slice.isRecorded() && !_id) [[unlikely]]
            start(slice);
    }
    /// Leads the flow through a slice. Does nothing if the flow has not started.
    void passThrough(TraceEvents::Slice &slice) const noexcept
    {
        if (_id && slice.isRecorded()) [[unlikely]]
            pass(slice);
    }
    /// Ends the flow on the calling thread. Does nothing if it has not started.
    void end() noexcept
    {
        if (_id) [[unlikely]]
            finish();
    }

private:
    void start(TraceEvents::Slice &slice) noexcept;
    void pass(TraceEvents::Slice &slice) const noexcept;
    void finish() noexcept;

    std::uint64_t _id = 0;
    char const *_category = nullptr;
};

} // namespace Zv
