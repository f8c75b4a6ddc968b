// The device in between.
#pragma once

#include "playoutDevice.h"

/// Passes on what comes in at `in`, multiplied, to what is connected to `out`. Properties: `levels:gain`, a factor,
/// `levels:mute`, 1 for silence and 0 for none, and `levels:peak`, the largest sample so far, after the gain, in full
/// scale 1.0.
class Fader : public PlayoutDevice
{
public:
    Fader(Zv::LiString const &name, Zv::RCShdPtr<PlayoutJob> const &job);

protected:
    ~Fader() override;

    void performTake(Zv::RCShdPtr<AudioBlock> const &block) override;
    void performTakeEnd() override;

private:
    double _gain = 1;
    int _mute = 0;
    double _peak = 0;
    Zv::RCShdPtr<Zv::DevMDStdReading<double>> _shownPeak;
};
