#include "cueSheet.h"

#include "display.h"
#include "inContext.h"
#include "propertyText.h"

#include <map>
#include <stdexcept>
#include <utility>

using namespace Zv;

namespace {

std::string toNumber(double number)
{
    return format("%.17g", number);
}

/// The property that an event sets, and the value. `fader` is empty if there is none next to the player.
std::pair<std::string, std::string> toSetting(ShowEvent const &event, std::string const &player,
                                              std::string const &fader, Timeline const &timeline)
{
    if (event.action == "jump") {
        double const seconds =
            static_cast<double>(timeline.getFrame(event.value)) * timeline.getInterval();
        return {player + ":transport:cue", toNumber(seconds)};
    }
    if (fader.empty())
        throw std::invalid_argument("the player is connected to no fader");
    if (event.action == "gain") {
        if (!parseNumber(event.value))
            throw std::invalid_argument("\"" + event.value + "\" is no number");
        return {fader + ":levels:gain", event.value};
    }
    if (event.value != "on" && event.value != "off")
        throw std::invalid_argument("\"" + event.value + "\" is none of on, off");
    return {fader + ":levels:mute", event.value == "on" ? "1" : "0"};
}

/// Runs on the alarm manager's thread. The device does it when it comes to it.
void set(RCShdPtr<DevMDPropertyAny> const &property, std::string const &value, PlayoutJob &job)
{
    try {
        setPropertyText(property, value);
    } catch (std::exception const &failure) {
        job.fail(failure.what());
    }
}

} // namespace

void setCues(Stage const &stage, PlayoutJob &job)
{
    std::string const name = stage.findAll("player").front();
    // The player's own neighbour: what lies between them is on its way when the player holds.
    std::string const next = stage.findNext(name);
    std::string const fader = stage.isA("fader", next) ? next : "";
    std::map<std::string, RCShdPtr<DevMDPropertyAny>> properties;
    std::vector<Cues::Cue> cues;
    for (auto const &event : job.show.events) {
        std::string const text = event->action + " " + event->value;
        inContext(event->getWhere() + "event " + text, [&] {
            auto const frame = job.timeline->getFrame(event->at);
            auto const [path, value] = toSetting(*event, name, fader, *job.timeline);
            auto &property = properties[path];
            if (property.isNull())
                property = stage.properties().getProperty(path.c_str());
            cues.push_back(
                {frame, text, [property, value = value, &job] { set(property, value, job); }});
        });
    }
    PlayoutDevice *player = nullptr;
    for (auto const &[known, device] : stage.getDevices())
        if (known == name)
            player = device.get();
    job.cues.set(std::move(cues), [player, &job] {
        // Behind the jump that may still be in its FIFO.
        player->post([&job] {
            job.cues.countHappened();
            job.wake();
        });
    });
}
