#include "fader.h"

#include "playoutEx.h"

#include <algorithm>
#include <cmath>

using namespace Zv;

Fader::Fader(LiString const &name, RCShdPtr<PlayoutJob> const &job) : PlayoutDevice(name, job)
{
    addIn("What is faded");
    addOut("The same at another level", [this, name] {
        // Streams must be connected from the player on, so that each device knows the format.
        if (!getIn().isConnected())
            ZV_THROW(PlayoutEx::NotConnected, name.getChars(), "in");
        return getIn().getFormat();
    });
    _shownPeak = makeShd<DevMDStdReading<double>>(
        "peak", "The largest sample so far, after the gain", getFifo());
    ObjPtr<DevMDStdPropertySetBuilder> const builder(getPropertySetBuilder());
    builder->pushSet("levels", "How loud it is");
    builder->addProperty(makeProperty<double>(
        "gain", "The factor on every sample", getFifo(), [this](double &gain) { gain = _gain; },
        [this](double gain) { _gain = gain; }));
    builder->addProperty(makeProperty<int>(
        "mute", "1 for silence, 0 for none", getFifo(), [this](int &mute) { mute = _mute; },
        [this](int mute) { _mute = mute; }));
    builder->addProperty(_shownPeak);
}

Fader::~Fader() = default;

void Fader::performTake(RCShdPtr<AudioBlock> const &block)
{
    for (double &sample : block->samples) {
        sample *= _mute ? 0 : _gain;
        _peak = std::max(_peak, std::abs(sample));
    }
    send(block);
    _shownPeak->show(_peak);
}

void Fader::performTakeEnd()
{
    sendEnd();
}
