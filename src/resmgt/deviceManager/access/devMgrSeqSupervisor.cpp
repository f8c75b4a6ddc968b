#include "resmgt/deviceManager/access/devMgrSeqSupervisor.h"

#include "resmgt/deviceManager/access/configParsers.private.h"
#include "resmgt/deviceManager/devMgrDevice.private.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/deviceManager/sequence/devSeqSupervision.private.h"
#include "resmgt/locks/lkGuard.h"
#include "zvbase/containers.h"
#include "zvbase/dotText.private.h"
#include "zvbase/failures.h"

#include <ostream>

namespace Zv {

namespace {

using Members = Vector<DevSeqSupervision::Member>;

/// Creates and opens the devices of the string. Returns them in its order, in which a parent
/// precedes its children.
Members openMembers(DevMgrMediator &mediator, LiString const &config)
{
    LkGuard const guard(mediator.getLock());
    HashMap<LiString, std::size_t> places;
    Vector<std::size_t> parents;
    auto const edges = SeqConfigParser(config).getEdges();
    for (auto const &edge : edges) {
        auto const parent = places.find(edge[0]);
        if (parent == places.end() && !places.empty())
            ZV_THROW(DevMgrEx::ConfigSyntaxError, "A sequence has one root.");
        parents.push_back(places.empty() ? 0 : parent->second);
        if (!places.emplace(edge[1], places.size()).second)
            ZV_THROW(DevMgrEx::NameNotUnique);
    }
    Members members;
    for (std::size_t i = 0; i < edges.size(); ++i) {
        LiString const &name = edges[i][1];
        mediator.createPrtcl(name);
        auto const prtcl = rcDynamicCast<DevMDSyncSeqPrtcl>(mediator.getPrtcl(name));
        if (prtcl.isNull())
            ZV_THROW(DevMgrEx::BadMDPrtclImp);
        if (auto const failure = mediator.getOpenFailure(name)) // of an earlier opening
            std::rethrow_exception(failure);
        members.push_back({name, prtcl, mediator.getDevice(name), parents[i]});
    }
    return members;
}

class DevMgrSeqSupervisorImp final : public DevMgrSeqSupervisor
{
public:
    DevMgrSeqSupervisorImp(RCShdPtr<DevMgrMediator> const &mediator, Members const &members)
        : _mediator(mediator), _supervision(new DevSeqSupervision)
    {
        _supervision->open(members);
    }
    ~DevMgrSeqSupervisorImp() noexcept(false) override { _supervision->close(); }

    using DevMgrSeqSupervisor::abort;
    using DevMgrSeqSupervisor::stop;
    using DevMgrSeqSupervisor::wait;
    using DevMgrSeqSupervisor::waitLocked;

    void start() override { _supervision->start(); }
    bool waitLocked(double seconds) override { return _supervision->waitLocked(seconds); }
    DevSeqStatus stop(double seconds, double abortSeconds) override
    {
        return _supervision->stop(seconds, abortSeconds);
    }
    DevSeqStatus abort(double seconds) override { return _supervision->abort(seconds); }
    bool wait(double seconds) override { return _supervision->wait(seconds); }
    DevSeqStatus getStatus() override { return _supervision->getStatus(); }
    void setObserver(RCShdPtr<DevSeqObserver> observer) override
    {
        _supervision->setObserver(observer);
    }
    void setEndLimit(double seconds) override { _supervision->setEndLimit(seconds); }

private:
    RCShdPtr<DevMgrMediator> _mediator;
    RCShdPtr<DevSeqSupervision> _supervision;
};

} // namespace

void DevSeqStatus::dumpDot(std::ostream &stream) const
{
    HashMap<LiString, std::size_t> numbers;
    stream << "digraph {\n  node [shape=box];\n";
    for (DevSeqDeviceStatus const &device : devices) {
        std::size_t const number = numbers.size();
        numbers.emplace(device.name, number);
        LiString text = device.name + "\n" + device.state;
        if (!device.failure.isEmpty())
            text = text + "\n" + device.failure;
        bool const isLost = device.hasFailed || device.end == DevSeqDeviceStatus::End::NO_ANSWER;
        stream << "  d" << number << " [label=";
        Detail::writeDotString(stream, text);
        stream << (isLost ? ", color=red];\n" : "];\n");
        if (auto const parent = numbers.find(device.parent); parent != numbers.end())
            stream << "  d" << parent->second << " -> d" << number << ";\n";
    }
    stream << "}\n";
}

DevMgrSeqSupervisor::~DevMgrSeqSupervisor() noexcept(false) = default;

DevSeqStatus DevMgrSeqSupervisor::stop(double seconds)
{
    return stop(seconds, seconds);
}

ObjPtrRet<DevMgrSeqSupervisor> DevMgrSeqSupervisor::create(RCShdPtr<DevMgrMediator> const &mediator,
                                                           LiString const &config)
{
    return makeObj<DevMgrSeqSupervisorImp>(mediator, openMembers(*mediator, config));
}

} // namespace Zv
