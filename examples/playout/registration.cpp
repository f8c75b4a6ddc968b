#include "registration.h"

#include "fader.h"
#include "microphone.h"
#include "player.h"
#include "playoutEx.h"
#include "recorder.h"
#include "speaker.h"

using namespace Zv;

namespace {

template <class Device>
ObjPtrRet<DevRegistryEntry> makeEntry(std::string const &name, char const *description,
                                      RCShdPtr<PlayoutJob> const &job)
{
    return makeRegistryEntry(name.c_str(), description, [job](LiString const &device) {
        return makeShd<Device>(device, job);
    });
}

} // namespace

Registration::Registration(ShowDevice const &device, RCShdPtr<PlayoutJob> const &job)
    : _name(device.name)
{
    auto &registry = DevRegistry::getInstance();
    try {
        if (device.kind == "player")
            registry.add(makeEntry<Player>(_name, "Reads sound files", job));
        else if (device.kind == "fader")
            registry.add(makeEntry<Fader>(_name, "Applies a gain", job));
        else if (device.kind == "microphone")
            registry.add(makeEntry<Microphone>(_name, "Captures from a sound card", job));
        else if (device.kind == "speaker")
            registry.add(makeEntry<Speaker>(_name, "Plays through a sound card", job));
        else
            registry.add(makeEntry<Recorder>(_name, "Writes a sound file", job));
    } catch (ExBase const &failure) {
        ZV_THROW(PlayoutEx::Client,
                 (device.getWhere() + "device \"" + _name + "\": " + failure.getReason()).c_str());
    }
}

Registration::~Registration() noexcept(false)
{
    DevRegistry::getInstance().remove(_name.c_str());
}
