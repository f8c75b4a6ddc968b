// Description of a show: its clips, devices, streams, clock and events.
#pragma once

#include "showElement.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Sound file to be played. The clips of a show are played one after the other.
class ShowClip : public ShowElement
{
public:
    explicit ShowClip(std::string const &path = "") : ShowElement("clip"), file(path) {}
    std::string file; ///< as written in the show, see `Show::resolve`

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// Value that a property of the enclosing device gets before the start.
class ShowProperty : public ShowElement
{
public:
    ShowProperty() : ShowElement("property") {}
    std::string name; ///< "levels:gain"
    std::string value;

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// Device that the sequence may name. One that it does not name is not used.
class ShowDevice : public ShowElement
{
public:
    explicit ShowDevice(std::string const &kindAndName = "")
        : ShowElement("device"), name(kindAndName), kind(kindAndName)
    {}
    std::string name;
    std::string kind; ///< such as player; the name if it is left out
    std::string card; ///< place of a speaker or microphone, see `SoundCard::check`
    std::vector<std::unique_ptr<ShowProperty>> properties;

protected:
    void performAttributes(ShowAttributes &attributes) override;
    ShowElement *makeChild(std::string const &tag) override;
    void forEachChild(std::function<void(ShowElement &)> const &visit) override;
};

/// Tree of devices.
class ShowSequence : public ShowElement
{
public:
    explicit ShowSequence(std::string const &text = "") : ShowElement("sequence"), tree(text) {}
    /// Returns the names of the devices in the tree, in its order.
    std::vector<std::string> listDevices() const;

    std::string tree;

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// Stream from one device to another.
class ShowConnection : public ShowElement
{
public:
    explicit ShowConnection(std::string const &text = "") : ShowElement("connection"), stream(text)
    {}
    std::string stream;

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// Clock that paces the show. Its beats are the frames of a video rate.
class ShowClock : public ShowElement
{
public:
    ShowClock() : ShowElement("clock") {}
    std::string rate = "PAL"; ///< a short name of `Zv::LiTimeCode`

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// Memory of the clips while they are played.
class ShowMemory : public ShowElement
{
public:
    ShowMemory() : ShowElement("memory") {}
    std::string manager = "heap";
    std::string strategy = "LRU";          ///< chooses the page to unload if memory is short
    std::int64_t budget = 4 * 1024 * 1024; ///< bytes
    std::int64_t page = 256 * 1024;        ///< bytes that are loaded at once
    std::int64_t ahead = 4;                ///< pages that are loaded ahead of time

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// Action when the recording reaches a timecode.
class ShowEvent : public ShowElement
{
public:
    ShowEvent() : ShowElement("event") {}
    std::string at;
    std::string action; ///< gain, mute or jump
    std::string value;  ///< a factor, on or off, the timecode to go on from

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// The whole show. A plain object with public members.
class Show : public ShowElement
{
public:
    Show() : ShowElement("show") {}

    /// Sets the path of the document. Its folder is the base of the show's relative paths.
    void setPath(std::string const &path) { _path = path; }
    /// Returns the path of a file that the show names.
    std::string resolve(std::string const &file) const;
    /// Adds the devices, the sequence and the connections if the show has none. Devices that are
    /// added are one of the kind `source`, a fader and one of the kind `sink`. The sequence and the
    /// connections lead from the microphone, else the player, through the fader to the speaker, else
    /// the recorder. If `isPaced` is set, adds the clock and, for a player, the memory, too.
    void complete(bool isPaced, std::string const &source = "player",
                  std::string const &sink = "recorder");
    void performReadEnd() override;
    /// Returns the first device of a kind that the sequence names. A show without a sequence uses
    /// all its devices. Returns null if there is none.
    ShowDevice *find(std::string const &kind) const;
    /// Returns the device with a name. There must be one.
    ShowDevice const &getDevice(std::string const &name) const;

    std::string output; ///< as written in the show; empty if the command line must name it
    std::unique_ptr<ShowClock> clock;   ///< null if nothing paces the show
    std::unique_ptr<ShowMemory> memory; ///< null if clips are read without buffers
    std::vector<std::unique_ptr<ShowDevice>> devices;
    std::vector<std::unique_ptr<ShowClip>> clips;
    std::unique_ptr<ShowSequence> sequence;
    std::vector<std::unique_ptr<ShowConnection>> connections; ///< source before sink
    std::vector<std::unique_ptr<ShowEvent>> events;

protected:
    void performAttributes(ShowAttributes &attributes) override;
    ShowElement *makeChild(std::string const &tag) override;
    void forEachChild(std::function<void(ShowElement &)> const &visit) override;

private:
    std::string _path;
};
