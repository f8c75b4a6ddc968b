// Lock-free ring of samples between two threads.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

/// Ring of interleaved samples. One thread writes and one reads. `read` and `write` take no lock,
/// allocate nothing and make no system call.
class SampleRing
{
public:
    /// Makes a ring for that many frames. Keeps its memory from being paged out if the system
    /// permits that.
    SampleRing(int channels, std::int64_t frames);
    SampleRing(SampleRing const &) = delete;
    SampleRing &operator=(SampleRing const &) = delete;
    ~SampleRing();

    int getChannels() const { return static_cast<int>(_channels); }
    /// Returns the number of frames that can be read.
    std::int64_t getReady() const { return _written.load(_acquire) - _read.load(_acquire); }
    std::int64_t getCapacity() const { return _capacity; }
    /// Returns the number of frames that have room.
    std::int64_t getRoom() const { return _capacity - getReady(); }
    /// Calls `put(frame, channel, sample)` for the samples of the next frames. `frames` must not be
    /// more than are ready.
    template <class Put>
    void read(std::int64_t frames, Put put);
    /// Appends frames with the samples that `get(frame, channel)` returns. They must have room.
    template <class Get>
    void write(std::int64_t frames, Get get);

private:
    using Count = std::atomic<std::int64_t>;
    static_assert(Count::is_always_lock_free);

    /// Returns the place of a frame that is counted from the first one ever written.
    std::size_t getPlace(std::int64_t frame) const
    {
        return static_cast<std::size_t>(frame % _capacity) * _channels;
    }

    static constexpr auto _acquire = std::memory_order_acquire;

    std::size_t const _channels;
    std::int64_t const _capacity; // in frames
    std::vector<float> _samples;
    // A release publishes what was done to the samples before it.
    Count _written = 0; // frames in total
    Count _read = 0;
};

template <class Put>
void SampleRing::read(std::int64_t frames, Put put)
{
    std::int64_t const first = _read.load(std::memory_order_relaxed);
    for (std::int64_t i = 0; i < frames; ++i) {
        std::size_t const place = getPlace(first + i);
        for (std::size_t k = 0; k < _channels; ++k)
            put(static_cast<std::size_t>(i), k, _samples[place + k]);
    }
    _read.store(first + frames, std::memory_order_release);
}

template <class Get>
void SampleRing::write(std::int64_t frames, Get get)
{
    std::int64_t const first = _written.load(std::memory_order_relaxed);
    for (std::int64_t i = 0; i < frames; ++i) {
        std::size_t const place = getPlace(first + i);
        for (std::size_t k = 0; k < _channels; ++k)
            _samples[place + k] = get(static_cast<std::size_t>(i), k);
    }
    _written.store(first + frames, std::memory_order_release);
}
