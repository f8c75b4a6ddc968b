// Device that applies a gain.
#pragma once

#include "playoutDevice.h"

/// Multiplies the samples from `in` and passes them to `out`. Its properties are `levels:gain`, a
/// factor, `levels:mute`, 1 for silence and 0 for none, and `levels:peak`, the largest sample so
/// far after the gain, with full scale 1.0.
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
