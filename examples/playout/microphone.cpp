#include "microphone.h"

#include "playoutEx.h"
#include "soundCard.h"

#include <algorithm>
#include <cmath>

using namespace Zv;

namespace {

// In seconds.
constexpr double RESERVE = 2;
constexpr double LONGEST_RESERVE = 60;

} // namespace

Microphone::Microphone(LiString const &name, RCShdPtr<PlayoutJob> const &job)
    : PlayoutDevice(name, job),
      _card(*job->card),
      _place(job->show.getDevice(name.getChars()).card),
      _reserve(RESERVE)
{
    addOut("What is captured", [this] { return _format; });
    _position = makeShd<DevMDStdReading<double>>("position", "How much was captured, in seconds",
                                                 getFifo());
    addBeats();
    ObjPtr<DevMDStdPropertySetBuilder> const builder(getPropertySetBuilder());
    builder->pushSet("transport", "Where the microphone is");
    builder->addProperty(_position);
    builder->addProperty(makeProperty<double>(
        "length", "How much is captured, in seconds; 0 for no end", getFifo(),
        [this](double &seconds) { seconds = _length; },
        [this](double seconds) { _length = std::clamp(seconds, 0.0, LONGEST_LENGTH); }));
    builder->popSet();
    builder->pushSet("card", "The sound card");
    builder->addProperty(makeProperty<double>(
        "reserve", "How much sound may wait for the devices behind this one, in seconds", getFifo(),
        [this](double &seconds) { seconds = _reserve; },
        [this](double seconds) { _reserve = std::clamp(seconds, 0.0, LONGEST_RESERVE); }));
}

Microphone::~Microphone() = default;

void Microphone::performOpen()
{
    // This runs on the client's thread. The device's thread does not run yet.
    _format.channels = _card.openInput(_place);
    _format.layout = Channels::ofNumber(static_cast<std::size_t>(_format.channels));
    _format.rate = _card.getSampleRate();
    _format.encoding = SF_FORMAT_FLOAT;
    _format.frames = AudioFormat::UNKNOWN;
    PlayoutDevice::performOpen();
}

bool Microphone::endHere()
{
    post([this] {
        if (_isCapturing)
            _end = std::min(_end, _framesSent + _card.getCaptured());
    });
    return true;
}

void Microphone::performLock()
{
    if (_framesSent > 0 || _isCapturing) // after a recovery
        return;
    if (_length > 0)
        _end = std::llround(_length * _format.rate);
    _card.capture(_reserve);
    _isCapturing = true;
}

void Microphone::performBeats(std::int64_t)
{
    if (!_isCapturing)
        return;
    if (auto const failure = _card.getFailure(); !failure.empty())
        ZV_THROW(PlayoutEx::Client, failure.c_str());
}

bool Microphone::performPiece()
{
    if (!_isCapturing)
        return false;
    if (_framesSent == _end) {
        performEnd();
        sendEnd();
        return false;
    }
    auto const &timeline = *getJob().timeline;
    std::int64_t const frames = std::min(timeline.getSample(_block + 1, _format.rate) -
                                             timeline.getSample(_block, _format.rate),
                                         _end - _framesSent);
    if (_card.getCaptured() < frames || getJob().cues.isHeld(_block))
        return false; // until the next beat, or until the cue has been carried out
    ++_block;
    if (frames == 0)
        return true; // the card has very few samples per second
    _framesSent += frames;
    send(makeShd<AudioBlock>(_card.read(frames)));
    _position->show(static_cast<double>(_framesSent) / _format.rate);
    return true;
}

void Microphone::performEnd()
{
    _isCapturing = false;
    _card.endCapture();
}
