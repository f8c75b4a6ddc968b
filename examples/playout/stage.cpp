#include "stage.h"

#include "inContext.h"
#include "propertyText.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>

using namespace Zv;

namespace {

using Children = std::map<std::string, std::vector<std::string>>;

/// Appends the children of a node: `( recorder ( fader ( player ) ) ) `.
void appendTree(std::string &text, Children const &children, std::string const &parent)
{
    auto const place = children.find(parent);
    if (place == children.end())
        return;
    text += "( ";
    for (auto const &child : place->second) {
        text += child + " ";
        appendTree(text, children, child);
    }
    text += ") ";
}

/// The devices of a connection. Their names are empty if the text is not a connection.
struct Ends
{
    explicit Ends(std::string text) // "player:out push fader:in"
    {
        std::replace(text.begin(), text.end(), ':', ' ');
        std::istringstream words(text);
        std::string out, verb, in;
        if (!(words >> source >> out >> verb >> sink >> in))
            source = sink = "";
    }

    std::string source;
    std::string sink;
};

/// Throws `std::invalid_argument` for mistakes of the user in the tree that the library would take
/// for mistakes of the programmer.
void checkEdges(Vector<Vector<LiString>> const &edges)
{
    std::set<std::string> names;
    for (auto const &edge : edges) {
        std::string const name = edge[1].getChars();
        if (edge[0].isEmpty() && !names.empty())
            throw std::invalid_argument(name + " stands behind the root's group");
        if (!names.insert(name).second)
            throw std::invalid_argument(name + " stands in it twice");
    }
}

} // namespace

Stage::Stage(RCShdPtr<PlayoutJob> const &job) : _job(job)
{
    for (auto const &device : job->show.devices)
        _registrations.push_back(std::make_unique<Registration>(*device, job));
}

void Stage::create()
{
    _manager = DevMgr::create();
    _streams = _manager->createStreamAcc();
    _properties = _manager->createPropertyAcc();
}

void Stage::build()
{
    if (_job->timeline)
        _job->card = SoundCard::open(_job->show, *_job->timeline);
    if (_job->isPaced && !_job->card)
        SeSourceClock::getInstance().setInterval(_job->timeline->getInterval());
    configure();
    connect();
    for (auto const &device : _job->show.devices) {
        if (!isUsed(device->name))
            continue;
        for (auto const &property : device->properties)
            setProperty(property->getWhere(),
                        device->name + ":" + property->name + "=" + property->value);
    }
}

void Stage::configure()
{
    ShowSequence const &show = *_job->show.sequence;
    std::string const context = show.getWhere() + "sequence \"" + show.tree + "\"";
    inContext(context, [&] {
        ObjPtr<DevMgrSyncSeqAcc> const parser(_manager->createSyncSeqAcc());
        auto const edges = parser->parseConfig(show.tree.c_str());
        checkEdges(edges);
        _sequence = _manager->createSeqSupervisor(show.tree.c_str());
        for (auto const &edge : edges) {
            auto const device = rcDynamicCast<PlayoutDevice>(_manager->getPrtcl(edge[1]));
            _devices.emplace_back(edge[1].getChars(), device);
            int const depth = edge[0].isEmpty() ? 0 : _depths[edge[0].getChars()] + 1;
            _depths[edge[1].getChars()] = depth;
        }
        Children children;
        for (auto const &edge : edges)
            children[edge[0].getChars()].emplace_back(edge[1].getChars());
        appendTree(_tree, children, "");
        _tree.pop_back();
    });
    _source = findOne(context, "microphone", "player");
    static_cast<void>(findOne(context, "speaker", "recorder"));
}

/// Returns the name of the only device of two kinds.
std::string Stage::findOne(std::string const &context, std::string const &kind,
                           std::string const &otherKind) const
{
    auto const names = findAll(kind);
    auto const otherNames = findAll(otherKind);
    auto const refuse = [&](std::string const &reason) {
        ZV_THROW(PlayoutEx::Client, (context + ": it has " + reason).c_str());
    };
    if (names.empty() && otherNames.empty())
        refuse("no " + otherKind);
    if (!names.empty() && !otherNames.empty())
        refuse("a " + otherKind + " and a " + kind);
    auto const &found = names.empty() ? otherNames : names;
    if (found.size() > 1)
        refuse("more than one " + (names.empty() ? otherKind : kind) + ": " + describe(found));
    return found.front();
}

/// Returns the names, such as "hall (alsa:hw:0) and studio (alsa:hw:1)".
std::string Stage::describe(std::vector<std::string> const &devices) const
{
    std::string text;
    for (auto const &name : devices) {
        std::string const &card = _job->show.getDevice(name).card;
        text += text.empty() ? "" : name == devices.back() ? " and " : ", ";
        text += card.empty() ? name : name + " (" + card + ")";
    }
    return text;
}

void Stage::connect()
{
    std::map<std::string, std::string> sinks; // by source, of the streams that are connected so far
    for (auto const &connection : _job->show.connections)
        inContext(connection->getWhere() + "stream \"" + connection->stream + "\"", [&] {
            Ends const ends(connection->stream);
            // Follows the streams from the sink, to find a circle.
            for (auto end = ends.sink; !end.empty(); end = sinks.contains(end) ? sinks[end] : "")
                if (end == ends.source)
                    throw std::invalid_argument("it leads back to " + ends.source);
            try {
                _streams->connect(connection->stream.c_str());
            } catch (DevMgrEx::StreamNotAvailable const &) {
                throw std::invalid_argument("one of its two ends is connected already");
            }
            sinks[ends.source] = ends.sink;
        });
}

void Stage::setProperty(std::string const &where, std::string const &setting)
{
    std::string const context = where + "property \"" + setting + "\"";
    inContext(context, [&] {
        auto const equals = setting.find('=');
        if (equals == setting.npos)
            throw std::invalid_argument("it has no =value");
        auto const property = _properties->getProperty(setting.substr(0, equals).c_str());
        setPropertyText(property, setting.substr(equals + 1));
    });
}

std::vector<std::string> Stage::findAll(std::string const &kind) const
{
    std::vector<std::string> names;
    for (auto const &[name, device] : _devices)
        if (isA(kind, name))
            names.push_back(name);
    return names;
}

std::string Stage::findNext(std::string const &device) const
{
    for (auto const &connection : _job->show.connections)
        if (Ends const ends(connection->stream); ends.source == device)
            return ends.sink;
    return "";
}

bool Stage::isA(std::string const &kind, std::string const &device) const
{
    auto const &devices = _job->show.devices;
    return std::any_of(devices.begin(), devices.end(), [&](auto const &show) {
        return show->name == device && show->kind == kind;
    });
}

bool Stage::isUsed(std::string const &device) const
{
    return _depths.contains(device);
}

int Stage::getDepth(std::string const &device) const
{
    auto const place = _depths.find(device);
    return place == _depths.end() ? 0 : place->second;
}

void Stage::letGo()
{
    for (auto const &[name, device] : _devices)
        device->letGo();
}

DevMgrCloseReport Stage::close(double seconds)
{
    return _manager->close(seconds);
}

void Stage::release()
{
    _sequence.reset();
    _properties.reset();
    _streams.reset();
    _manager.reset();
    if (_job->isPaced)
        SeSyncEngine::getInstance().stop();
}
