#include "speaker.h"

#include "playoutEx.h"
#include "soundCard.h"

#include <algorithm>

using namespace Zv;

namespace {

constexpr double LONGEST_LATENCY = 60; // seconds

} // namespace

Speaker::Speaker(LiString const &name, RCShdPtr<PlayoutJob> const &job)
    : PlayoutDevice(name, job), _card(*job->card), _place(job->show.getDevice(name.getChars()).card)
{
    addIn("What is played");
    addBeats();
    ObjPtr<DevMDStdPropertySetBuilder> const builder(getPropertySetBuilder());
    builder->pushSet("card", "The sound card");
    builder->addProperty(makeProperty<double>(
        "latency", "How much sound is kept ready for the card, in seconds", getFifo(),
        [this](double &seconds) { seconds = _card.getLatency(); },
        [this](double seconds) { _card.setLatency(std::clamp(seconds, 0.0, LONGEST_LATENCY)); }));
}

Speaker::~Speaker() = default;

void Speaker::performBegin()
{
    AudioFormat const &format = getIn().getFormat();
    if (getJob().journal)
        _waveform = std::make_unique<Waveform>(format);
    _card.openOutput(format, _place);
}

void Speaker::performTake(RCShdPtr<AudioBlock> const &block)
{
    _waiting.push_back(block);
    if (_waveform)
        _waveform->add(block);
    write();
}

void Speaker::performTakeEnd()
{
    _hasAll = true;
    write();
}

void Speaker::performBeats(std::int64_t)
{
    if (auto const failure = _card.getFailure(); !failure.empty())
        ZV_THROW(PlayoutEx::Client, failure.c_str());
    write();
    if (_hasAll && _waiting.empty() && !_isDone && _card.hasPlayedAll()) {
        _isDone = true;
        getJob().complete();
    }
}

void Speaker::write()
{
    AudioFormat const &format = getIn().getFormat();
    while (!_waiting.empty()) {
        auto const &samples = _waiting.front()->samples;
        std::int64_t const taken = _card.write(samples, _first);
        _first += taken;
        _written += taken;
        if (_first * format.channels < static_cast<std::int64_t>(samples.size()))
            break;
        _waiting.pop_front();
        _first = 0;
        count();
    }
    if (_hasAll && _waiting.empty())
        _card.endOutput();
    bool const isEnough = static_cast<double>(_written) >= _card.getLatency() * format.rate;
    if (!_isPlaying && (isEnough || _hasAll || !_waiting.empty())) {
        _isPlaying = true;
        _card.play();
    }
}

void Speaker::performEnd()
{
    _waiting.clear();
    if (_waveform)
        getJob().journal->keep(std::move(_waveform));
    if (!_isDone)
        _card.mute();
}
