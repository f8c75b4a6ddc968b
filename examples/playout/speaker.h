// Device that plays through a sound card.
#pragma once

#include "playoutDevice.h"

#include <deque>

class SoundCard;

/// Plays the blocks from `in` through the sound card of its tag in the show. It gives them to the
/// card as far as the card has room, at each beat of the card's clock, and begins to play when there is as much as the
/// latency. When the last sample can be heard, it tells the client. Its property `card:latency`, in
/// seconds and at most 60, is set before START.
///
/// If a block comes too late, there is silence until it comes. Nothing is left out.
class Speaker : public PlayoutDevice
{
public:
    Speaker(Zv::LiString const &name, Zv::RCShdPtr<PlayoutJob> const &job);

protected:
    ~Speaker() override;

    void performBegin() override;
    void performTake(Zv::RCShdPtr<AudioBlock> const &block) override;
    void performTakeEnd() override;
    void performBeats(std::int64_t beats) override;
    void performEnd() override;

private:
    void write();

    SoundCard &_card;
    std::string const _place;                      // of the card
    std::deque<Zv::RCShdPtr<AudioBlock>> _waiting; // the card has no room for them
    std::unique_ptr<Waveform> _waveform;           // for the report; null if there is none
    std::int64_t _first = 0;                       // frame of the first one that was not written
    std::int64_t _written = 0;                     // frames in total
    bool _isPlaying = false;
    bool _hasAll = false;
    bool _isDone = false;
};
