// The device that reads.
#pragma once

#include "clip.h"
#include "clipMemory.h"
#include "playoutDevice.h"

#include <memory>

/// Reads the clips and pushes them, block by block, into what is connected to `out`, at the beats of the clock where
/// that paces the show, elsewhere as fast as `out` takes it: from
/// the moment that it has locked to the end of the last one. Properties, in seconds: `transport:position`, how much
/// has been played, `transport:cue`, the place in the clips, which can be set, and `transport:length`, 0 for unknown.
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
    /// A frame of the show's clock, or what the command line says.
    int getBlockFrames() const;
    template <class Step>
    void attemptWithMemory(Step step) const;

    std::unique_ptr<ClipMemory> _memory; // null where clips are read as they come
    std::unique_ptr<Clip> _clip;         // all of them, as one
    Zv::RCShdPtr<Zv::DevMDStdReading<double>> _position;
    Zv::RCShdPtr<Zv::DevMDStdReading<double>> _length;
    bool _isPlaying = false;
    bool _hasSentAll = false;
    bool _hasBegun = false;       // at a beat
    std::int64_t _nbDue = 0;      // blocks, by the beats
    std::int64_t _block = 0;      // the next one's number
    std::int64_t _place = 0;      // in the clips, in frames
    std::int64_t _framesSent = 0; // in all
};
