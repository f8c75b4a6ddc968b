// Record of a running show, for its report.
#pragma once

#include "waveform.h"

#include <resmgt/locks.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Values over time, in spans of one length. If the spans are used up, each two become one, so that
/// the memory does not grow with the time.
class Series
{
public:
    struct Span
    {
        double largest = 0;
        double last = 0;
        std::int64_t count = 0; // of values
    };
    static constexpr std::size_t MOST_SPANS = 1024;

    /// Adds a value. Values must come in the order of their moments, or nearly so. Drops it if the
    /// moment is negative.
    void add(double moment, double value);
    double getSpanLength() const { return _length; }
    std::vector<Span> const &getSpans() const { return _spans; }
    std::int64_t getCount() const { return _count; }
    double getLargest() const { return _largest; }

private:
    void halve();

    double _length = 1e-3; // seconds
    std::vector<Span> _spans;
    std::int64_t _count = 0;
    double _largest = 0;
};

/// Numbers of times by their length. The classes are 10, 20, 50 microseconds and so on.
class Histogram
{
public:
    static constexpr std::array<double, 14> BOUNDS = {10e-6,  20e-6, 50e-6, 100e-6, 200e-6,
                                                      500e-6, 1e-3,  2e-3,  5e-3,   10e-3,
                                                      20e-3,  50e-3, 0.1,   0.2};

    void add(double seconds);
    /// Returns the numbers of times below each bound, and that of all longer times.
    std::array<std::int64_t, BOUNDS.size() + 1> const &getCounts() const { return _counts; }
    std::int64_t getCount() const;
    double getLongest() const { return _longest; }

private:
    std::array<std::int64_t, BOUNDS.size() + 1> _counts{};
    double _longest = 0;
};

/// What happens in a show, as far as its report shows it. Takes at most a few megabytes for a show
/// of any length. Moments are those of the monotonic clock. What happens before `begin` is dropped,
/// except the memory in use. Thread-safe.
class Journal
{
public:
    /// Change of a device to another state. The moment is since `begin`.
    struct Move
    {
        double moment;
        std::string device;
        std::string state;
    };
    struct Records
    {
        std::vector<Move> moves;
        std::int64_t nbDroppedMoves = 0;
        std::map<std::string, Series> requests;    // how long they took, by device
        Series loads;                              // how long they took
        Series unloads;                            // 0 for each
        Series bytes;                              // of memory in use
        std::map<std::string, Histogram> lateness; // of beats, by device
    };

    Journal() = default;
    Journal(Journal const &) = delete;
    Journal &operator=(Journal const &) = delete;

    /// The show starts now.
    void begin(double moment);
    void move(std::string const &device, std::string const &state, double moment);
    /// A device has carried out a request or a piece of work.
    void request(std::string const &device, double begin, double end);
    /// A page of a clip was loaded.
    void load(double begin, double end);
    /// A page of a clip has lost its memory to another page.
    void unload(double moment);
    /// The memory in use has changed.
    void use(std::int64_t bytes, double moment);
    /// A beat has reached the thread that waits for it.
    void beat(std::string const &device, double lateness);
    /// Keeps the waveform of what was recorded or played.
    void keep(std::unique_ptr<Waveform> waveform);

    /// Returns everything that was recorded so far.
    Records getRecords() const;
    /// Returns the waveform, or null if none was kept.
    std::unique_ptr<Waveform> takeWaveform();

private:
    Zv::LkLock mutable _lock{"Journal"};
    double _begin ZV_GUARDED_BY(_lock) = 0; // 0 before the start
    double _bytesAtBegin ZV_GUARDED_BY(_lock) = 0;
    Records _records ZV_GUARDED_BY(_lock);
    std::unique_ptr<Waveform> _waveform ZV_GUARDED_BY(_lock);
};
