#include "player.h"

#include "audioReader.h"

using namespace Zv;

Player::Player(LiString const &name, RCShdPtr<PlayoutJob> const &job) : PlayoutDevice(name, job)
{
    addOut("The recording", [this] { return _reel.getFormat(); });
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
    for (auto const &clip : getJob().show.clips) {
        std::string const path = getJob().show.resolve(clip->file);
        _reel.add(std::make_unique<AudioReader>(path), path);
    }
    auto const &format = _reel.getFormat();
    _length->show(static_cast<double>(format.frames) / format.rate);
    PlayoutDevice::performOpen();
}

void Player::performLock()
{
    _isPlaying = true;
}

bool Player::performPiece()
{
    if (!_isPlaying)
        return false;
    auto const &format = _reel.getFormat();
    auto const block = makeShd<AudioBlock>(_reel.read(_framesSent, getJob().blockFrames));
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
