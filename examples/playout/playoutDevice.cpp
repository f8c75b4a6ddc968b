#include "playoutDevice.h"

#include "playoutEx.h"

#include <exception>
#include <utility>

using namespace Zv;

namespace {

TraceLevel const &traceLevel = *Trace::registerLevel("playout", __FILE__);

} // namespace

/// Loop that reports to the clock each request that leaves the FIFO, and that records since when
/// the device is busy.
class PlayoutDevice::Body final : public DevMDStdLoopThreadProtocol
{
public:
    Body(PlayoutDevice &device, RCShdPtr<DevMDStdFifo> const &fifo,
         RCShdPtr<FifoClock> const &clock)
        : DevMDStdLoopThreadProtocol(fifo), _device(device), _fifo(fifo), _clock(clock)
    {}

    void consume() override { execute(_fifo->consume()); }
    bool tryConsume() override
    {
        DevANOQueueEntry entry;
        return _fifo->tryConsume(entry) && (execute(entry), true);
    }

protected:
    double performWork() override
    {
        Busy busy(_device);
        busy.isWork = _device.work();
        return busy.isWork ? 0 : NO_WORK;
    }

private:
    struct Busy
    {
        explicit Busy(PlayoutDevice &ofDevice) : device(ofDevice)
        {
            device._busySince = Sleeper::getInstance().getTime();
        }
        Busy(Busy const &) = delete;
        Busy &operator=(Busy const &) = delete;
        ~Busy()
        {
            double const since = device._busySince.exchange(0);
            if (auto const &journal = device._job->journal; journal && isWork)
                journal->request(device._name.getChars(), since, Sleeper::getInstance().getTime());
        }

        PlayoutDevice &device;
        bool isWork = true;
    };

    void execute(DevANOQueueEntry entry)
    {
        _clock->consumed();
        Busy const busy(_device);
        ObjPtr<DevANO> const ano(entry.release());
        DevANOTrace::Execution const execution(*ano);
        try {
            ano->performExecute();
        } catch (...) {
            if (!ano->notifyFailure(std::current_exception()))
                throw;
            return;
        }
        ano->notify();
    }

    PlayoutDevice &_device;
    RCShdPtr<DevMDStdFifo> _fifo;
    RCShdPtr<FifoClock> _clock;
};

PlayoutDevice::PlayoutDevice(LiString const &name, RCShdPtr<PlayoutJob> const &job)
    : PlayoutDevice(name, job, makeShd<FifoClock>())
{}

PlayoutDevice::PlayoutDevice(LiString const &name, RCShdPtr<PlayoutJob> const &job,
                             RCShdPtr<FifoClock> const &clock)
    : PlayoutDevice(name, job, clock, makeShd<DevMDStdFifo>(clock, 0)) // see AudioConnection
{}

PlayoutDevice::PlayoutDevice(LiString const &name, RCShdPtr<PlayoutJob> const &job,
                             RCShdPtr<FifoClock> const &clock, RCShdPtr<DevMDStdFifo> const &fifo)
    : DevMDStdDevice(name, fifo, makeObj<Body>(*this, fifo, clock)),
      _name(name),
      _job(job),
      _clock(clock)
{
    job->setOpening(name.getChars()); // a device is opened after its creation
}

PlayoutDevice::~PlayoutDevice() = default;

PlayoutDevice::Statistics PlayoutDevice::getStatistics() const
{
    Statistics statistics = _statistics;
    statistics.blocks = _nbDone;
    statistics.longestWait = _clock->getLongestWait();
    return statistics;
}

PlayoutDevice::Load PlayoutDevice::getLoad() const
{
    Load load{_clock->getNbWaiting(), std::nullopt, _nbDone};
    if (!_in.isNull())
        load.nbBlocks = _in->getNbWaiting();
    return load;
}

void PlayoutDevice::letGo()
{
    if (!_out.isNull())
        _out->letGo();
}

double PlayoutDevice::getBusySeconds() const
{
    double const since = _busySince;
    bool const isWaiting = !_out.isNull() && _out->isWaiting();
    return since > 0 && !isWaiting ? Sleeper::getInstance().getTime() - since : 0;
}

void PlayoutDevice::post(std::function<void()> function)
{
    DevANOQueueEntry entry(makeANO(std::move(function)));
    getFifo()->produce(entry);
}

void PlayoutDevice::performOpen()
{
    beginFault(findFault(Fault::Phase::OPEN), _name.getChars(), Fault::Phase::OPEN);
    DevMDStdDevice::performOpen();
    if (_isPaced)
        _metronome.start((std::string(_name.getChars()) + " beats").c_str(), getFifo(),
                         _job->getBeats(), [this](std::int64_t beats) { take(beats); },
                         getOnLateness());
}

/// Returns what tells the journal of each beat. Empty if there is no journal.
Metronome::OnLateness PlayoutDevice::getOnLateness() const
{
    Journal * const journal = _job->journal.get();
    if (!journal)
        return nullptr;
    return [journal, name = std::string(_name.getChars())](double lateness) {
        journal->beat(name, lateness);
    };
}

// The device is closed even if the fault throws.
void PlayoutDevice::performClose()
{
    _metronome.stop();
    auto const fault = findFault(Fault::Phase::CLOSE);
    bool const isThrown = fault == Fault::Kind::FAILS || fault == Fault::Kind::FAILS_OTHERWISE;
    if (!isThrown)
        beginFault(fault, _name.getChars(), Fault::Phase::CLOSE);
    DevMDStdDevice::performClose();
    if (isThrown)
        beginFault(fault, _name.getChars(), Fault::Phase::CLOSE);
}

DtTime PlayoutDevice::getLatency()
{
    beginFault(findFault(Fault::Phase::READY), _name.getChars(), Fault::Phase::READY);
    return DevMDStdDevice::getLatency();
}

void PlayoutDevice::addIn(char const *description)
{
    _in =
        makeShd<AudioIn>("in", description, getFifo(),
                         makePushANOFactory([this](ObjPtr<DevMDStreamElem> elem) { take(*elem); }));
    addStream(_in);
}

void PlayoutDevice::addOut(char const *description, std::function<AudioFormat()> getFormat)
{
    _out = makeShd<AudioOut>("out", description, getFifo(), std::move(getFormat),
                             [this] { failWithNeighbour(); });
    addStream(_out);
}

void PlayoutDevice::send(RCShdPtr<AudioBlock> const &block)
{
    count();
    if (!_out->push(AudioEv::BLOCK, block))
        ZV_THROW(PlayoutEx::NeighbourFailed, _name.getChars());
}

void PlayoutDevice::sendEnd()
{
    if (!_out->push(AudioEv::END))
        ZV_THROW(PlayoutEx::NeighbourFailed, _name.getChars());
}

void PlayoutDevice::count()
{
    if (_nbDone++ > 0)
        return;
    auto const fault = findFault(Fault::Phase::LOCK);
    beginFault(fault, _name.getChars(), Fault::Phase::LOCK);
    if (fault == Fault::Kind::RECOVERS || findFault(Fault::Phase::RECOVER))
        reportRecover();
    if (fault == Fault::Kind::ABORTS || findFault(Fault::Phase::ABORT))
        reportAbort();
}

void PlayoutDevice::start()
{
    ZV_TRACE(traceLevel, _name << " starts");
    performStep(Fault::Phase::START, [this] {
        if (_hasFailed) // a neighbour was faster and has failed
            ZV_THROW(PlayoutEx::NeighbourFailed, _name.getChars());
        _state = State::running;
        requireStreams();
        performBegin();
    });
}

void PlayoutDevice::sync()
{
    ZV_TRACE(traceLevel, _name << " locks");
    if (_state != State::running)
        return;
    if (_statistics.lockedAt == 0)
        _statistics.lockedAt = Sleeper::getInstance().getTime();
    performStep(Fault::Phase::SYNC, [this] { performLock(); });
}

void PlayoutDevice::recover()
{
    ZV_TRACE(traceLevel, _name << " recovers");
    performStep(Fault::Phase::RECOVER, [] {});
}

void PlayoutDevice::stop()
{
    performStep(Fault::Phase::STOP, [this] { end(); });
}

void PlayoutDevice::abort()
{
    performStep(Fault::Phase::ABORT, [this] { end(); });
}

void PlayoutDevice::end()
{
    if (_state == State::ended)
        return;
    ZV_TRACE(traceLevel, _name << " ends after " << _nbDone.load() << " blocks");
    performEnd();
    _state = State::ended;
    _statistics.endedAt = Sleeper::getInstance().getTime();
}

void PlayoutDevice::take(DevMDStreamElem const &elem)
{
    if (elem.getEv() == AudioEv::BLOCK)
        _in->takeUp();
    if (_hasFailed || _state == State::ended)
        return;
    attempt([&] {
        if (_state != State::running)
            ZV_THROW(PlayoutEx::NotStarted, _name.getChars());
        if (elem.getEv() == AudioEv::BLOCK)
            performTake(rcDynamicCast<AudioBlock>(elem.getBuf()));
        else if (elem.getEv() == AudioEv::END)
            performTakeEnd();
        else
            ZV_THROW(PlayoutEx::NeighbourFailed, _name.getChars());
    });
}

void PlayoutDevice::take(std::int64_t beats)
{
    if (_state == State::running && !_hasFailed)
        attempt([&] { performBeats(beats); });
}

bool PlayoutDevice::work()
{
    bool isMore = false;
    return _state == State::running && !_hasFailed && attempt([&] { isMore = performPiece(); }) &&
           isMore;
}

void PlayoutDevice::requireStreams() const
{
    if (!_in.isNull() && !_in->isConnected())
        ZV_THROW(PlayoutEx::NotConnected, _name.getChars(), "in");
    if (!_out.isNull() && !_out->isConnected())
        ZV_THROW(PlayoutEx::NotConnected, _name.getChars(), "out");
    if (!_out.isNull() && _out->isBroken())
        ZV_THROW(PlayoutEx::NeighbourFailed, _name.getChars());
}

template <class Step>
void PlayoutDevice::performStep(Fault::Phase phase, Step step)
{
    auto const fault = findFault(phase);
    try {
        beginFault(fault, _name.getChars(), phase);
        step();
        if (fault)
            finishFault(*fault);
    } catch (PlayoutEx::NeighbourFailed const &failure) {
        fail(failure.getReason(), false);
        throw;
    } catch (ExBase const &failure) {
        fail(failure.getReason());
        throw;
    } catch (std::exception const &failure) {
        fail(failure.what());
        throw;
    }
}

void PlayoutDevice::finishFault(Fault::Kind kind)
{
    switch (kind) {
    case Fault::Kind::SILENT:
        _kept = takeCompletion();
        break;
    case Fault::Kind::DROPS:
        static_cast<void>(ObjPtr<DevACO>(takeCompletion()));
        break;
    case Fault::Kind::TWICE: {
        ObjPtr<DevACO> const completion(takeCompletion());
        completion->performExecute();
        completion->performExecute();
        break;
    }
    case Fault::Kind::RECOVERS:
        reportRecover();
        break;
    case Fault::Kind::ABORTS:
        reportAbort();
        break;
    default:
        break;
    }
}

template <class Step>
bool PlayoutDevice::attempt(Step step)
{
    try {
        step();
        return true;
    } catch (PlayoutEx::NeighbourFailed const &failure) {
        fail(failure.getReason(), false);
    } catch (ExBase const &failure) {
        fail(failure.getReason());
    } catch (std::exception const &failure) {
        fail(failure.what());
    }
    reportAbort();
    return false;
}

void PlayoutDevice::failWithNeighbour()
{
    if (_state != State::ended && !_hasFailed)
        attempt([this] { ZV_THROW(PlayoutEx::NeighbourFailed, _name.getChars()); });
}

void PlayoutDevice::fail(char const *reason, bool isOwn)
{
    if (_hasFailed)
        return;
    ZV_TRACE(traceLevel, _name << " fails: " << reason);
    _hasFailed = true;
    if (isOwn)
        _job->fail(_name.getChars(), reason);
    else
        _job->fail(reason);
    performEnd();
    if (!_in.isNull())
        _in->breakUp();
    if (!_out.isNull() && _out->isConnected())
        _out->push(AudioEv::FAILED);
}

std::optional<Fault::Kind> PlayoutDevice::findFault(Fault::Phase phase) const
{
    return _job->faults.find(_name.getChars(), phase);
}
