#include "show.h"

#include "playoutEx.h"
#include "soundCard.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <stdexcept>

void ShowClip::performAttributes(ShowAttributes &attributes)
{
    attributes.text("file", file);
}

void ShowProperty::performAttributes(ShowAttributes &attributes)
{
    attributes.text("name", name);
    attributes.text("value", value);
}

void ShowDevice::performAttributes(ShowAttributes &attributes)
{
    attributes.text("name", name);
    attributes.optional("kind", kind);
    if (kind.empty())
        kind = name;
    bool const hasCard = kind == "speaker" || kind == "microphone";
    if (!hasCard && kind != "player" && kind != "fader" && kind != "recorder")
        ZV_THROW(
            PlayoutEx::Client,
            ("\"" + kind + "\" is none of player, fader, recorder, speaker, microphone").c_str());
    attributes.optional("card", card);
    if (hasCard && card.empty())
        card = "jack";
    if (!hasCard && !card.empty())
        ZV_THROW(PlayoutEx::Client, "card: only a speaker and a microphone have one");
    try {
        if (!card.empty())
            SoundCard::check(card);
    } catch (std::invalid_argument const &failure) {
        ZV_THROW(PlayoutEx::Client, ("card: " + std::string(failure.what())).c_str());
    }
}

ShowElement *ShowDevice::makeChild(std::string const &tag)
{
    return tag == "property" ? make(properties) : nullptr;
}

void ShowDevice::forEachChild(std::function<void(ShowElement &)> const &visit)
{
    for (auto const &property : properties)
        visit(*property);
}

void ShowSequence::performAttributes(ShowAttributes &attributes)
{
    attributes.text("tree", tree);
}

std::vector<std::string> ShowSequence::listDevices() const
{
    std::string text = tree; // "( recorder ( player ) )"
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '(' || c == ')'; }, ' ');
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

void ShowConnection::performAttributes(ShowAttributes &attributes)
{
    attributes.text("stream", stream);
}

void ShowClock::performAttributes(ShowAttributes &attributes)
{
    attributes.choice("rate", rate, {"PAL", "Film24", "NTSC ND", "NTSC DF"});
}

void ShowMemory::performAttributes(ShowAttributes &attributes)
{
    attributes.choice("manager", manager, {"heap", "arena"});
    attributes.choice("strategy", strategy, {"LRU", "random"});
    attributes.number("budget", budget, 1, std::int64_t{1} << 40);
    attributes.number("page", page, 64, std::int64_t{1} << 30);
    attributes.number("ahead", ahead, 0, 1000);
}

void ShowEvent::performAttributes(ShowAttributes &attributes)
{
    attributes.text("at", at);
    attributes.choice("action", action, {"gain", "mute", "jump"});
    attributes.text("value", value);
}

std::string Show::resolve(std::string const &file) const
{
    return std::filesystem::path(_path).replace_filename(file);
}

ShowDevice *Show::find(std::string const &kind) const
{
    auto const names = sequence ? sequence->listDevices() : std::vector<std::string>();
    auto const isUsed = [&](std::string const &name) {
        return !sequence || std::find(names.begin(), names.end(), name) != names.end();
    };
    auto const place = std::find_if(devices.begin(), devices.end(), [&](auto const &device) {
        return device->kind == kind && isUsed(device->name);
    });
    return place == devices.end() ? nullptr : place->get();
}

ShowDevice const &Show::getDevice(std::string const &name) const
{
    return **std::find_if(devices.begin(), devices.end(),
                          [&](auto const &device) { return device->name == name; });
}

void Show::complete(bool isPaced, std::string const &source, std::string const &sink)
{
    if (devices.empty())
        for (std::string const &kind : {source, std::string("fader"), sink})
            devices.push_back(std::make_unique<ShowDevice>(kind));
    if (isPaced && !clock)
        clock = std::make_unique<ShowClock>();
    if (isPaced && !memory && !find("microphone"))
        memory = std::make_unique<ShowMemory>();
    auto const getName = [&](char const *kind, char const *usualName) {
        ShowDevice const * const device = find(kind);
        return device ? device->name : usualName;
    };
    std::string const first = getName("microphone", "player");
    std::string const last = getName("speaker", "recorder");
    if (!sequence)
        sequence = std::make_unique<ShowSequence>("( " + last + " ( fader ( " + first + " ) ) )");
    if (connections.empty())
        for (std::string const &stream :
             {first + ":out push fader:in", "fader:out push " + last + ":in"})
            connections.push_back(std::make_unique<ShowConnection>(stream));
}

void Show::performReadEnd()
{
    if (clips.empty() == !find("microphone"))
        ZV_THROW(PlayoutEx::Client,
                 clips.empty() ? "a show needs a clip" : "a show with a microphone plays no clips");
    complete(true);
}

void Show::performAttributes(ShowAttributes &attributes)
{
    attributes.optional("output", output);
}

ShowElement *Show::makeChild(std::string const &tag)
{
    return tag == "clock"        ? make(clock)
           : tag == "memory"     ? make(memory)
           : tag == "device"     ? make(devices)
           : tag == "clip"       ? make(clips)
           : tag == "sequence"   ? make(sequence)
           : tag == "connection" ? make(connections)
           : tag == "event"      ? make(events)
                                 : static_cast<ShowElement *>(nullptr);
}

void Show::forEachChild(std::function<void(ShowElement &)> const &visit)
{
    auto const visitAll = [&](auto const &children) {
        for (auto const &child : children)
            visit(*child);
    };
    if (clock)
        visit(*clock);
    if (memory)
        visit(*memory);
    visitAll(devices);
    visitAll(clips);
    if (sequence)
        visit(*sequence);
    visitAll(connections);
    visitAll(events);
}
