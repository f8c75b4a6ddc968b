#include "stage.h"

#include "inContext.h"
#include "propertyText.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>

using namespace Zv;

namespace {

/// `( recorder ( fader ( player ) ) )`
std::string toTree(Vector<Vector<LiString>> const &edges, LiString const &parent)
{
    std::string text;
    for (auto const &edge : edges)
        if (edge[0] == parent)
            text += std::string(edge[1].getChars()) + " " + toTree(edges, edge[1]);
    return text.empty() ? text : "( " + text + ") ";
}

/// What `configure` takes for a programmer's mistake may be a user's here.
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

Stage::~Stage() noexcept(false)
{
    close();
}

void Stage::build()
{
    if (_job->isPaced)
        SeSourceClock::getInstance().setInterval(_job->timeline->getInterval());
    _manager = DevMgr::create();
    _sequence = _manager->createSyncSeqAcc();
    _streams = _manager->createStreamAcc();
    _properties = _manager->createPropertyAcc();
    configure();
    connect();
    for (auto const &device : _job->show.devices)
        for (auto const &property : device->properties)
            setProperty(property->getWhere(),
                        device->name + ":" + property->name + "=" + property->value);
}

void Stage::configure()
{
    ShowSequence const &show = *_job->show.sequence;
    std::string const context = show.getWhere() + "sequence \"" + show.tree + "\"";
    inContext(context, [&] {
        auto const edges = _sequence->parseConfig(show.tree.c_str());
        checkEdges(edges);
        _sequence->configure(show.tree.c_str());
        for (auto const &edge : edges) {
            auto const device = rcDynamicCast<PlayoutDevice>(_manager->getPrtcl(edge[1]));
            _devices.emplace_back(edge[1].getChars(), device);
        }
        _tree = toTree(edges, LiString());
        _tree.pop_back();
    });
    for (std::string const needed : {"player", "recorder"})
        if (auto const count = findAll(needed).size(); count != 1)
            ZV_THROW(PlayoutEx::Client,
                     (context + ": it has " + (count ? "more than one " : "no ") + needed).c_str());
}

void Stage::connect()
{
    for (auto const &connection : _job->show.connections)
        inContext(connection->getWhere() + "stream \"" + connection->stream + "\"",
                  [&] { _streams->connect(connection->stream.c_str()); });
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
    for (auto const &connection : _job->show.connections) {
        std::string text = connection->stream; // "player:out push fader:in"
        std::replace(text.begin(), text.end(), ':', ' ');
        std::istringstream words(text);
        std::string source, out, verb, sink;
        if (words >> source >> out >> verb >> sink && source == device)
            return sink;
    }
    return "";
}

bool Stage::isA(std::string const &kind, std::string const &device) const
{
    auto const &devices = _job->show.devices;
    return std::any_of(devices.begin(), devices.end(), [&](auto const &show) {
        return show->name == device && show->kind == kind;
    });
}

void Stage::close()
{
    _job->cues.stop(); // they wait for devices
    _properties.reset();
    _streams.reset();
    _sequence.reset();
    _manager.reset();
    if (_job->isPaced)
        SeSyncEngine::getInstance().stop();
}
