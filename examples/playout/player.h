// The device that reads.
#pragma once

#include "clip.h"
#include "clipMemory.h"
#include "playoutDevice.h"

#include <memory>

/// Reads the clips and pushes them, block by block, into what is connected to `out`, as fast as that takes it: from
/// the moment that it has locked to the end of the last one. Properties: `transport:position` and `transport:length`, in
/// seconds; a length of 0 is not known.
class Player : public PlayoutDevice
{
public:
    Player(Zv::LiString const &name, Zv::RCShdPtr<PlayoutJob> const &job);

    /// Opens the files. Throws `PlayoutEx::Input`.
    void performOpen() override;
    void performClose() override;

protected:
    ~Player() override;

    void performLock() override;
    bool performPiece() override;
    void performEnd() override;

private:
    template <class Step>
    void attemptWithMemory(Step step) const;

    std::unique_ptr<ClipMemory> _memory; // null where clips are read as they come
    std::unique_ptr<Clip> _clip;         // all of them, as one
    Zv::RCShdPtr<Zv::DevMDStdReading<double>> _position;
    Zv::RCShdPtr<Zv::DevMDStdReading<double>> _length;
    bool _isPlaying = false;
    std::int64_t _framesSent = 0;
};
