// Device that reads the clips.
#pragma once

#include "clip.h"
#include "clipMemory.h"
#include "playoutDevice.h"

#include <memory>

/// Reads the clips and pushes them block by block to `out`, from its lock to the end of the last
/// clip. If the clock paces the show, it does so at the beats, otherwise as fast as `out` takes the
/// blocks. Its properties, in seconds, are `transport:position`, how much was played,
/// `transport:cue`, the place in the clips, which can be set, and `transport:length`, 0 if unknown.
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
    void performBeats(std::int64_t beats) override;
    bool performPiece() override;
    void performEnd() override;

private:
    /// Returns the frames of the next block: a frame of the show's clock, or what the command line
    /// says.
    int getBlockFrames() const;
    std::int64_t begin();
    template <class Step>
    void attemptWithMemory(Step step) const;

    std::unique_ptr<ClipMemory> _memory; // null if clips are read without buffers
    std::unique_ptr<Clip> _clip;         // all clips as one
    Zv::RCShdPtr<Zv::DevMDStdReading<double>> _position;
    Zv::RCShdPtr<Zv::DevMDStdReading<double>> _length;
    bool _isPlaying = false;
    bool _hasSentAll = false;
    bool _hasBegun = false;       // the first beat has come
    std::int64_t _nbDue = 0;      // blocks that the beats ask for and that were not sent
    std::int64_t _block = 0;      // number of the next one
    std::int64_t _place = 0;      // in the clips, in frames
    std::int64_t _framesSent = 0; // in total
};
