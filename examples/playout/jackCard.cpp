#include "jackCard.h"

#ifdef ZVPLAYOUT_JACK

#include "playoutEx.h"

#include <cerrno>
#include <sstream>
#include <utility>

namespace {

constexpr std::size_t MOST_OWN = 2; // ports of the card that are used if a place names none

[[noreturn]] void fail(std::string const &reason)
{
    ZV_THROW(PlayoutEx::Client, reason.c_str());
}

bool hasNames(std::string const &place)
{
    return place.find(':') != place.npos;
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
    setSampleRate(static_cast<int>(jack_get_sample_rate(_client)));
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
            static_cast<JackCard *>(card)->countLate();
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
        fail("the JACK server refuses this client");
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

std::string JackCard::getFailure() const
{
    if (_isGone.load(std::memory_order_relaxed))
        return "the JACK server has gone away";
    return standsStill() ? "the JACK server does not go on" : "";
}

void JackCard::performOpenOutput(int channels, int rate, std::string const &place)
{
    if (rate != getSampleRate())
        fail("the recording has " + std::to_string(rate) +
             " samples a second, and the sound card takes " + std::to_string(getSampleRate()));
    _outputs = makePorts(static_cast<std::size_t>(channels), JackPortIsOutput);
    auto const names = listPorts(place, JackPortIsInput);
    if (names.size() < _outputs.size())
        fail("the recording needs " + std::to_string(channels) + " ports to play to, and " + place +
             " has " + std::to_string(names.size()));
    // A mono recording is heard on both sides. Other recordings leave further ports of the card
    // alone.
    std::size_t const count = hasNames(place)
                                  ? names.size()
                                  : std::max(_outputs.size(), std::min(names.size(), MOST_OWN));
    for (std::size_t i = 0; i < count; ++i)
        connect(_outputs[i % _outputs.size()], names[i]);
    _hasOutputs.store(true, std::memory_order_release);
}

int JackCard::performOpenInput(std::string const &place)
{
    auto names = listPorts(place, JackPortIsOutput);
    if (names.empty())
        fail("the sound card of the JACK server has no port to capture from");
    if (!hasNames(place))
        names.resize(std::min(names.size(), MOST_OWN));
    _inputs = makePorts(names.size(), JackPortIsInput);
    for (std::size_t i = 0; i < names.size(); ++i)
        connect(_inputs[i], names[i]);
    _hasInputs.store(true, std::memory_order_release);
    return static_cast<int>(names.size());
}

JackCard::Ports JackCard::makePorts(std::size_t number, JackPortFlags flag)
{
    std::string const prefix = flag == JackPortIsInput ? "in_" : "out_";
    Ports ports;
    for (std::size_t i = 1; i <= number; ++i) {
        jack_port_t * const port =
            jack_port_register(_client, (prefix + std::to_string(i)).c_str(),
                               JACK_DEFAULT_AUDIO_TYPE, flag | JackPortIsTerminal, 0);
        if (!port)
            fail("the JACK server takes no further ports");
        ports.push_back({port, nullptr});
    }
    return ports;
}

/// Returns the names behind "jack:". If there are none, returns those of the card's own ports.
std::vector<std::string> JackCard::listPorts(std::string const &place, JackPortFlags flag) const
{
    std::vector<std::string> names;
    if (hasNames(place)) {
        std::istringstream text(place.substr(place.find(':') + 1));
        for (std::string name; std::getline(text, name, ',');)
            names.push_back(name);
        return names;
    }
    std::unique_ptr<char const *, void (*)(void *)> const ports(
        jack_get_ports(_client, nullptr, JACK_DEFAULT_AUDIO_TYPE, JackPortIsPhysical | flag),
        jack_free);
    for (char const * const *name = ports.get(); name && *name; ++name)
        names.emplace_back(*name);
    return names;
}

void JackCard::connect(Port const &own, std::string const &other)
{
    char const * const name = jack_port_name(own.port);
    bool const isInput = jack_port_flags(own.port) & JackPortIsInput;
    int const error = isInput ? jack_connect(_client, other.c_str(), name)
                              : jack_connect(_client, name, other.c_str());
    if (error && error != EEXIST)
        fail("the JACK server has no port \"" + other + "\" to " +
             (isInput ? "capture from" : "play to"));
}

std::int64_t JackCard::getOutputDelay()
{
    jack_latency_range_t range = {};
    jack_port_get_latency_range(_outputs.front().port, JackPlaybackLatency, &range);
    return range.max;
}

int JackCard::process(jack_nframes_t count)
{
    auto const getBuffers = [&](Ports &ports) {
        for (Port &port : ports)
            port.buffer = static_cast<float *>(jack_port_get_buffer(port.port, count));
    };
    if (_hasOutputs.load(std::memory_order_acquire)) {
        getBuffers(_outputs);
        playPeriod(count, [&](std::size_t frame, std::size_t channel, float sample) {
            _outputs[channel].buffer[frame] = sample;
        });
    }
    if (_hasInputs.load(std::memory_order_acquire)) {
        getBuffers(_inputs);
        capturePeriod(count, [&](std::size_t frame, std::size_t channel) {
            return _inputs[channel].buffer[frame];
        });
    }
    advance(count);
    return 0;
}

#endif
