#include "player.h"

using namespace Zv;

Player::Player(LiString const &name, RCShdPtr<PlayoutJob> const &job) : PlayoutDevice(name, job)
{
    addOut("The recording", [this] { return _reader->getFormat(); });
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
    _reader = std::make_unique<AudioReader>(getJob().input);
    auto const &format = _reader->getFormat();
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
    auto const &format = _reader->getFormat();
    auto const block = makeShd<AudioBlock>(_reader->read(getJob().blockFrames));
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
