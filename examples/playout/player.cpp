#include "player.h"

#include "audioReader.h"
#include "bufferedClip.h"
#include "playoutEx.h"
#include "reel.h"

#include <algorithm>

using namespace Zv;

Player::Player(LiString const &name, RCShdPtr<PlayoutJob> const &job) : PlayoutDevice(name, job)
{
    addOut("The recording", [this] { return _clip->getFormat(); });
    _position = makeShd<DevMDStdReading<double>>(
        "position", "How far the recording has been played, in seconds", getFifo());
    _length = makeShd<DevMDStdReading<double>>(
        "length", "How long the recording is, in seconds; 0 for unknown", getFifo());
    ObjPtr<DevMDStdPropertySetBuilder> const builder(getPropertySetBuilder());
    builder->pushSet("transport", "Where the player is");
    builder->addProperty(_position);
    builder->addProperty(_length);
}

Player::~Player() = default;

void Player::performOpen()
{
    // On the client's thread: the device's does not run yet.
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
    _isPlaying = true;
}

bool Player::performPiece()
{
    if (!_isPlaying)
        return false;
    auto const &format = _clip->getFormat();
    std::vector<double> samples;
    attemptWithMemory([&] { samples = _clip->read(_framesSent, getJob().blockFrames); });
    auto const block = makeShd<AudioBlock>(std::move(samples));
    if (block->samples.empty()) {
        _isPlaying = false;
        sendEnd();
        return false;
    }
    _framesSent += static_cast<std::int64_t>(block->samples.size()) / format.channels;
    send(block);
    _position->show(static_cast<double>(_framesSent) / format.rate);
    return true;
}

void Player::performEnd()
{
    _isPlaying = false;
}
