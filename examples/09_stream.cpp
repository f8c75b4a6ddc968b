// Two devices with a stream: a player pushes blocks of samples, and a recorder takes them.
//
// The client connects the stream and runs both devices as a sequence. If the queue of the recorder
// is full, the player waits in `push`.
//
// Prints:
//
//     recorded 48000 samples
//     recorder is in state final
//     player is in state final

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>
#include <resmgt/locks.h>
#include <zvbase/zvbase.h>

#include <iostream>
#include <vector>

using namespace Zv;

namespace {

constexpr std::size_t SECOND = 48000; // samples

struct Mono : DevMDStreamFormat
{};

struct Block : DevMDStreamBuf
{
    std::vector<float> samples = std::vector<float>(SECOND / 100);
};

struct Output : DevMDStdStreamActiveSource
{
    using DevMDStdStreamActiveSource::DevMDStdStreamActiveSource;
    int getKind() override { return 0; }
    RCShdPtr<DevMDStreamFormat> getFormat() override { return makeShd<Mono>(); }
    void connect(RCShdPtr<DevMDStreamPassiveSink> input) override { sink = input; }

    RCShdPtr<DevMDStreamPassiveSink> sink;
};

struct Input : DevMDStdStreamPassiveSink
{
    using DevMDStdStreamPassiveSink::DevMDStdStreamPassiveSink;
    int getKind() override { return 0; }
    bool isCompatible(RCShdPtr<DevMDStreamFormat> const &format) override
    {
        return dynamic_cast<Mono *>(format.get());
    }
};

/// Plays a second of silence when it is in lock.
class Player : public DevMDStdDevice
{
public:
    explicit Player(LiString const &name) : DevMDStdDevice(name) { addStream(_output); }

protected:
    void sync() override { _nbLeft = SECOND; }
    void recover() override { _nbLeft = 0; }
    void stop() override { _nbLeft = 0; }
    void abort() override { _nbLeft = 0; }
    double performWork() override
    {
        if (_nbLeft == 0)
            return DevMDStdLoopThreadProtocol::NO_WORK;
        auto const block = makeShd<Block>();
        _nbLeft -= block->samples.size();
        _output->sink->push(makeObj<DevMDStreamElem>(block, DevMDStreamElem::Ev{}));
        return 0; // there is more to do
    }

private:
    RCShdPtr<Output> const _output = makeShd<Output>("out", "The samples");
    std::size_t _nbLeft = 0; // samples
};

/// Counts samples, and sets an event after a second. The event must outlive the device.
class Recorder : public DevMDStdDevice
{
public:
    Recorder(LiString const &name, LkEvent &complete) : DevMDStdDevice(name)
    {
        auto const take = [this, &complete](ObjPtr<DevMDStreamElem> element) {
            auto const block = element->getBuf();
            _nbSamples += static_cast<Block const &>(*block).samples.size();
            if (_nbSamples == SECOND)
                complete.set();
        };
        addStream(makeShd<Input>("in", "The samples", getFifo(), makePushANOFactory(take)));
    }

protected:
    void stop() override { std::cout << "recorded " << _nbSamples << " samples\n"; }

private:
    std::size_t _nbSamples = 0;
};

} // namespace

int main()
{
    InPackageScope const packages;
    try {
        LkEvent complete("recording complete", false);
        DevRegistry::getInstance().add(makeRegistryEntry(
            "player", "Plays silence", [](LiString const &name) { return makeShd<Player>(name); }));
        DevRegistry::getInstance().add(
            makeRegistryEntry("recorder", "Counts samples", [&complete](LiString const &name) {
                return makeShd<Recorder>(name, complete);
            }));
        ObjPtr<DevMgr> const manager = DevMgr::create();
        ObjPtr<DevMgrStreamAcc> const streams = manager->createStreamAcc();
        streams->connect("player:out push recorder:in");
        ObjPtr<DevMgrSeqSupervisor> const sequence =
            manager->createSeqSupervisor("( recorder ( player ) )");
        sequence->start();
        if (!complete.timedWait(10)) // seconds
            std::cerr << "The recording needs longer than usual.\n";
        for (DevSeqDeviceStatus const &device : sequence->stop(10).devices)
            std::cout << device.name << " is in state " << device.state << '\n';
    } catch (ExBase const &failure) {
        std::cerr << failure.getReason() << '\n';
        return 1;
    }
}
