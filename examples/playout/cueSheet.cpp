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

/// Returns the property that an event sets, and its value. Throws `std::invalid_argument` if the
/// event is wrong.
std::pair<std::string, std::string> toSetting(ShowEvent const &event, std::string const &source,
                                              std::string const &fader, Timeline const &timeline)
{
    if (event.action == "jump") {
        double const seconds =
            static_cast<double>(timeline.getFrame(event.value)) * timeline.getInterval();
        return {source + ":transport:cue", toNumber(seconds)};
    }
    if (event.action == "gain") {
        if (!parseNumber(event.value))
            throw std::invalid_argument("\"" + event.value + "\" is no number");
        return {fader + ":levels:gain", event.value};
    }
    if (event.value != "on" && event.value != "off")
        throw std::invalid_argument("\"" + event.value + "\" is none of on, off");
    return {fader + ":levels:mute", event.value == "on" ? "1" : "0"};
}

/// Sets a property. Runs on the alarm manager's thread.
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
    std::string const name = stage.getSource();
    bool const isPlayer = stage.isA("player", name);
    // Only the fader next to the source will do. While the source waits, all blocks before the cue
    // are already in that fader's FIFO.
    std::string const next = stage.findNext(name);
    std::string const fader = stage.isA("fader", next) ? next : "";
    std::map<std::string, RCShdPtr<DevMDPropertyAny>> properties;
    std::vector<Cues::Cue> cues;
    for (auto const &event : job.show.events) {
        std::string const text = event->action + " " + event->value;
        inContext(event->getWhere() + "event " + text, [&] {
            bool const isJump = event->action == "jump";
            if (isJump && !isPlayer)
                throw std::invalid_argument("a microphone does not jump");
            if (!isJump && fader.empty())
                throw std::invalid_argument("the " +
                                            std::string(isPlayer ? "player" : "microphone") +
                                            " is connected to no fader");
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
        // Posted, because the request of a jump may still be in the player's FIFO.
        player->post([&job] {
            job.cues.countHappened();
            job.wake();
        });
    });
}
