// A show: what is played, by whom, and what happens meanwhile.
#pragma once

#include "showElement.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// A recording. The clips of a show are played one after the other.
class ShowClip : public ShowElement
{
public:
    explicit ShowClip(std::string const &path = "") : ShowElement("clip"), file(path) {}
    std::string file; ///< as it stands in the show: see `Show::resolve`

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// A value that a property of the device around it gets before the start.
class ShowProperty : public ShowElement
{
public:
    ShowProperty() : ShowElement("property") {}
    std::string name; ///< "levels:gain"
    std::string value;

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// A device that the sequence may name.
class ShowDevice : public ShowElement
{
public:
    explicit ShowDevice(std::string const &kindAndName = "")
        : ShowElement("device"), name(kindAndName), kind(kindAndName)
    {}
    std::string name;
    std::string kind; ///< player, fader or recorder; the name where it is left out
    std::vector<std::unique_ptr<ShowProperty>> properties;

protected:
    void performAttributes(ShowAttributes &attributes) override;
    ShowElement *makeChild(std::string const &tag) override;
    void forEachChild(std::function<void(ShowElement &)> const &visit) override;
};

/// The tree of devices.
class ShowSequence : public ShowElement
{
public:
    explicit ShowSequence(std::string const &text = "") : ShowElement("sequence"), tree(text) {}
    std::string tree;

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// A stream from device to device.
class ShowConnection : public ShowElement
{
public:
    explicit ShowConnection(std::string const &text = "") : ShowElement("connection"), stream(text)
    {}
    std::string stream;

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// What the show is paced by: beats are the frames of a video rate.
class ShowClock : public ShowElement
{
public:
    ShowClock() : ShowElement("clock") {}
    std::string rate = "PAL"; ///< a short name of `Zv::LiTimeCode`

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// Where the clips live while they are played.
class ShowMemory : public ShowElement
{
public:
    ShowMemory() : ShowElement("memory") {}
    std::string manager = "heap";
    std::string strategy = "LRU";          ///< what goes where memory is short
    std::int64_t budget = 4 * 1024 * 1024; ///< bytes
    std::int64_t page = 256 * 1024;        ///< bytes that are loaded at once
    std::int64_t ahead = 4;                ///< pages that are loaded before they are wanted

protected:
    void performAttributes(ShowAttributes &attributes) override;
};

/// Something that happens when the recording has come to a timecode.
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

/// The whole. A plain object: whoever has it reads and changes its members.
class Show : public ShowElement
{
public:
    Show() : ShowElement("show") {}

    /// Where the document stands: from there its files are found.
    void setPath(std::string const &path) { _path = path; }
    std::string resolve(std::string const &file) const;
    /// Adds what a document may leave out: devices, sequence and connections; where `isPaced`, clock and memory too.
    void complete(bool isPaced);
    void performReadEnd() override;

    std::string output; ///< as it stands in the show; empty where the command line has to say it
    std::unique_ptr<ShowClock> clock;   ///< null: as fast as it goes
    std::unique_ptr<ShowMemory> memory; ///< null: clips are read as they come
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
