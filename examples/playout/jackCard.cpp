#include "jackCard.h"

#ifdef ZVPLAYOUT_JACK

#include "playoutEx.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <sstream>
#include <utility>

namespace {

constexpr double LONGEST_STANDSTILL = 5; // seconds until a server that does nothing counts as gone
constexpr std::size_t SAMPLE = sizeof(float);

[[noreturn]] void fail(std::string const &reason)
{
    ZV_THROW(PlayoutEx::Client, reason.c_str());
}

/// Returns the names behind "jack:", without a place those of the card's own ports.
std::vector<std::string> listPorts(jack_client_t *client, std::string const &place)
{
    std::vector<std::string> names;
    if (auto const colon = place.find(':'); colon != place.npos) {
        std::istringstream text(place.substr(colon + 1));
        for (std::string name; std::getline(text, name, ',');)
            names.push_back(name);
        return names;
    }
    std::unique_ptr<char const *, void (*)(void *)> const ports(
        jack_get_ports(client, nullptr, JACK_DEFAULT_AUDIO_TYPE,
                       JackPortIsPhysical | JackPortIsInput),
        jack_free);
    for (char const * const *name = ports.get(); name && *name; ++name)
        names.emplace_back(*name);
    return names;
}

} // namespace

JackCard::JackCard(Timeline const &timeline) : SoundCard(timeline)
{
    // The library would write its messages to the standard error.
    jack_set_error_function([](char const *) {});
    jack_set_info_function([](char const *) {});
    _client = jack_client_open("zvplayout", JackNoStartServer, nullptr);
    if (!_client)
        fail("there is no JACK server. Start one, for example by \"jackd -d alsa\", or begin this "
             "command with \"pw-jack\" if the sound is PipeWire's");
    _rate = static_cast<int>(jack_get_sample_rate(_client));
    _period = static_cast<int>(jack_get_buffer_size(_client));
    jack_set_process_callback(
        _client,
        [](jack_nframes_t count, void *card) {
            return static_cast<JackCard *>(card)->process(count);
        },
        this);
    jack_set_xrun_callback(
        _client,
        [](void *card) {
            static_cast<JackCard *>(card)->_late.fetch_add(1, std::memory_order_relaxed);
            return 0;
        },
        this);
    jack_on_info_shutdown(
        _client,
        [](jack_status_t, char const *, void *card) {
            static_cast<JackCard *>(card)->_isGone.store(true, std::memory_order_relaxed);
        },
        this);
    if (jack_activate(_client) != 0) {
        close();
        fail("the JACK server refuses to play");
    }
}

JackCard::~JackCard()
{
    close(); // the callback uses the members
}

void JackCard::close()
{
    if (jack_client_t * const client = std::exchange(_client, nullptr))
        jack_client_close(client);
}

SoundCard::Figures JackCard::getFigures() const
{
    auto const order = std::memory_order_relaxed;
    return {_position.load(order), _underruns.load(order), _silence.load(order), _late.load(order)};
}

std::string JackCard::getFailure() const
{
    if (_isGone.load(std::memory_order_relaxed))
        return "the JACK server has gone away";
    if (getStandstill() > LONGEST_STANDSTILL)
        return "the JACK server does not go on";
    return "";
}

void JackCard::openOutput(int channels, std::string const &place)
{
    // The player is ahead by the latency, and by a second if it catches up after a delay.
    _capacity = std::llround((getLatency() + 1) * _rate);
    for (int i = 0; i < channels; ++i) {
        jack_port_t * const port =
            jack_port_register(_client, ("out_" + std::to_string(i + 1)).c_str(),
                               JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput | JackPortIsTerminal, 0);
        if (!port)
            fail("the JACK server takes no further ports");
        // The ring keeps one byte free.
        auto * const ring =
            jack_ringbuffer_create(static_cast<std::size_t>(_capacity) * SAMPLE + 1);
        if (!ring)
            fail("there is no memory for the latency");
        jack_ringbuffer_mlock(ring); // if it is refused, the ring may be paged out
        _channels.push_back({port, {ring, jack_ringbuffer_free}});
    }
    connect(place);
    _isOpen.store(true, std::memory_order_release);
}

/// Connects the ports with those of a place. If it has more, the channels are repeated.
void JackCard::connect(std::string const &place)
{
    auto const names = listPorts(_client, place);
    if (names.size() < _channels.size())
        fail("the recording needs " + std::to_string(_channels.size()) + " ports to play to, and " +
             place + " has " + std::to_string(names.size()));
    bool const isOwn = place.find(':') == place.npos;
    // A mono recording is heard on both sides. Other recordings leave the further ports alone.
    std::size_t const count =
        isOwn ? std::max(_channels.size(), std::min<std::size_t>(names.size(), 2)) : names.size();
    for (std::size_t i = 0; i < count; ++i) {
        char const * const port = jack_port_name(_channels[i % _channels.size()].port);
        if (int const error = jack_connect(_client, port, names[i].c_str());
            error && error != EEXIST)
            fail("the JACK server has no port \"" + names[i] + "\" to play to");
    }
}

std::int64_t JackCard::write(std::vector<double> const &samples, std::int64_t first)
{
    auto const channels = _channels.size();
    std::int64_t const written = _written.load(std::memory_order_relaxed);
    // Acquire, because the place of played samples is written to.
    std::int64_t const room = _capacity - (written - _played.load(std::memory_order_acquire));
    std::int64_t const count =
        std::min(room, static_cast<std::int64_t>(samples.size() / channels) - first);
    _samples.resize(static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < channels; ++i) {
        auto sample = samples.begin() + first * static_cast<std::int64_t>(channels) +
                      static_cast<std::int64_t>(i);
        for (std::size_t k = 0; k < _samples.size(); ++k)
            _samples[k] = static_cast<float>(sample[static_cast<std::int64_t>(k * channels)]);
        jack_ringbuffer_write(_channels[i].ring.get(),
                              reinterpret_cast<char const *>(_samples.data()),
                              _samples.size() * SAMPLE);
    }
    _written.store(written + count, std::memory_order_release);
    return count;
}

bool JackCard::hasPlayedAll()
{
    if (_played.load(std::memory_order_acquire) < _written.load(std::memory_order_relaxed))
        return false;
    if (_end < 0) {
        jack_latency_range_t range = {};
        jack_port_get_latency_range(_channels.front().port, JackPlaybackLatency, &range);
        _end = getPosition() + range.max;
    }
    return getPosition() >= _end;
}

int JackCard::process(jack_nframes_t count)
{
    auto const relaxed = std::memory_order_relaxed;
    if (_isOpen.load(std::memory_order_acquire)) {
        bool const hasAll = _hasAll.load(std::memory_order_acquire); // before `_written`
        bool const isPlaying = _isPlaying.load(std::memory_order_acquire);
        std::int64_t const played = _played.load(relaxed);
        std::int64_t const ready =
            isPlaying
                ? std::min<std::int64_t>(_written.load(std::memory_order_acquire) - played, count)
                : 0;
        for (Channel const &channel : _channels) {
            auto * const buffer = static_cast<float *>(jack_port_get_buffer(channel.port, count));
            jack_ringbuffer_read(channel.ring.get(), reinterpret_cast<char *>(buffer),
                                 static_cast<std::size_t>(ready) * SAMPLE);
            std::fill(buffer + ready, buffer + count, 0.0f);
        }
        _played.store(played + ready, std::memory_order_release);
        if (isPlaying && !hasAll && ready < count) {
            _underruns.store(_underruns.load(relaxed) + 1, relaxed);
            _silence.store(_silence.load(relaxed) + count - ready, relaxed);
        }
    }
    _position.store(_position.load(relaxed) + count, std::memory_order_release);
    return 0;
}

#endif
