#include "player.h"

#include "audioReader.h"
#include "bufferedClip.h"
#include "playoutEx.h"
#include "reel.h"

#include <algorithm>
#include <cmath>
#include <utility>

using namespace Zv;

Player::Player(LiString const &name, RCShdPtr<PlayoutJob> const &job) : PlayoutDevice(name, job)
{
    addOut("The recording", [this] { return _clip->getFormat(); });
    _position = makeShd<DevMDStdReading<double>>("position", "How much has been played, in seconds",
                                                 getFifo());
    _length = makeShd<DevMDStdReading<double>>(
        "length", "How long the recording is, in seconds; 0 for unknown", getFifo());
    addBeats();
    ObjPtr<DevMDStdPropertySetBuilder> const builder(getPropertySetBuilder());
    builder->pushSet("transport", "Where the player is");
    builder->addProperty(_position);
    builder->addProperty(makeProperty<double>(
        "cue", "The place in the clips from which it goes on, in seconds", getFifo(),
        [this](double &seconds) {
            seconds = static_cast<double>(_place) / _clip->getFormat().rate;
        },
        [this](double seconds) {
            _place = std::llround(std::max(seconds, 0.0) * _clip->getFormat().rate);
        }));
    builder->addProperty(_length);
}

Player::~Player() = default;

void Player::performOpen()
{
    // This runs on the client's thread. The device's thread does not run yet.
    Show const &show = getJob().show;
    auto reel = std::make_unique<Reel>();
    for (auto const &clip : show.clips) {
        std::string const path = show.resolve(clip->file);
        reel->add(std::make_unique<AudioReader>(path), path);
    }
    _clip = std::move(reel);
    auto const &format = _clip->getFormat();
    if (show.memory && format.frames != AudioFormat::UNKNOWN)
        attemptWithMemory([&] {
            _memory = std::make_unique<ClipMemory>(*show.memory, getJob().memoryFigures);
            _clip = std::make_unique<BufferedClip>(std::move(_clip), *_memory);
        });
    _length->show(static_cast<double>(std::max<std::int64_t>(format.frames, 0)) / format.rate);
    PlayoutDevice::performOpen();
}

void Player::performClose()
{
    PlayoutDevice::performClose();
    _clip.reset();
    _memory.reset();
}

template <class Step>
void Player::attemptWithMemory(Step step) const
{
    try {
        step();
    } catch (MbEx const &failure) {
        ZV_THROW(PlayoutEx::Client,
                 (getJob().show.memory->getWhere() + "memory: " + failure.getReason()).c_str());
    }
}

void Player::performLock()
{
    _isPlaying = !_hasSentAll; // also after a recovery
}

void Player::performBeats(std::int64_t beats)
{
    if (!_isPlaying)
        return;
    _nbDue += std::exchange(_hasBegun, true) ? beats : begin();
}

/// Schedules the cues if there is no sound card. With one, the player is ahead by the card's
/// latency, and each cue is due when the player reaches it. Returns how many blocks are due.
std::int64_t Player::begin()
{
    double const interval = getJob().timeline->getInterval();
    if (auto const &card = getJob().card)
        return 1 + std::llround(std::ceil(card->getLatency() / interval));
    getJob().cues.start(Sleeper::getInstance().getTime(), interval);
    return 1;
}

bool Player::performPiece()
{
    if (!_isPlaying || (isPaced() && _nbDue == 0) || getJob().cues.isHeld(_block))
        return false;
    int const frames = getBlockFrames();
    --_nbDue;
    ++_block;
    if (frames == 0)
        return true; // the file has very few samples per second
    auto const &format = _clip->getFormat();
    std::vector<double> samples;
    attemptWithMemory([&] { samples = _clip->read(_place, frames); });
    if (samples.empty()) {
        _isPlaying = false;
        _hasSentAll = true;
        sendEnd();
        return false;
    }
    auto const count = static_cast<std::int64_t>(samples.size()) / format.channels;
    _place += count;
    _framesSent += count;
    send(makeShd<AudioBlock>(std::move(samples)));
    _position->show(static_cast<double>(_framesSent) / format.rate);
    return true;
}

int Player::getBlockFrames() const
{
    auto const &timeline = getJob().timeline;
    if (!timeline)
        return getJob().blockFrames;
    int const rate = _clip->getFormat().rate;
    return static_cast<int>(timeline->getSample(_block + 1, rate) -
                            timeline->getSample(_block, rate));
}

void Player::performEnd()
{
    _isPlaying = false;
}
