#include "playoutDevice.h"

#include "playoutEx.h"

#include <atomic>

using namespace Zv;

namespace {

TraceLevel const &traceLevel = *Trace::registerLevel("playout", __FILE__);

} // namespace

/// Files are opened by the devices' own `performOpen`, so that a missing one is a failure of `configure`.
class PlayoutDevice::AccessANOFactory final : public DevMDStdAccessANOFactory
{
public:
    ObjPtrRet<DevMDStdANO> createOpenANO() override
    {
        return makeANO([] {});
    }
    ObjPtrRet<DevMDStdANO> createCloseANO() override
    {
        return makeANO([] {});
    }
};

/// `makeSyncSeqANOFactory` would do, but for START: a device that cannot start does not report that it is ready. It
/// takes the report out of the request.
class PlayoutDevice::SyncSeqANOFactory final : public DevMDStdSyncSeqANOFactory
{
public:
    explicit SyncSeqANOFactory(PlayoutDevice &device) : _device(device) {}

    ObjPtrRet<DevMDStdANO> createStartANO(ObjPtr<DevANO>, ObjPtr<DevANO> abort) override
    {
        return makeObj<StartANO>(_device, abort);
    }
    ObjPtrRet<DevMDStdANO> createSyncANO(DtTimeMark const &) override
    {
        return makeANO([&device = _device] { device.sync(); });
    }
    ObjPtrRet<DevMDStdANO> createSyncANO(DtTime const &) override
    {
        return makeANO([&device = _device] { device.sync(); });
    }
    ObjPtrRet<DevMDStdANO> createRecoverANO() override
    {
        return makeANO([] {});
    }
    ObjPtrRet<DevMDStdANO> createStopANO() override
    {
        return makeANO([&device = _device] { device.end(); });
    }
    ObjPtrRet<DevMDStdANO> createAbortANO() override
    {
        return makeANO([&device = _device] { device.end(); });
    }

private:
    class StartANO final : public DevMDStdANO
    {
    public:
        StartANO(PlayoutDevice &device, ObjPtr<DevANO> abort) : _device(device), _abort(abort) {}

        void performExecute() override
        {
            if (!_device.start(_abort))
                ObjPtr<DevACO> const dropped(releaseACO());
        }

    private:
        PlayoutDevice &_device;
        ObjPtr<DevANO> _abort;
    };

    PlayoutDevice &_device;
};

/// Works as long as there is work, and serves the FIFO in between; sleeps in the FIFO otherwise.
class PlayoutDevice::Thread final : public DevMDStdThreadProtocol
{
public:
    Thread(PlayoutDevice &device, RCShdPtr<DevMDStdFifo> const &fifo,
           RCShdPtr<FifoClock> const &clock)
        : DevMDStdThreadProtocol(fifo), _device(device), _fifo(fifo), _clock(clock)
    {}

    void performExecute(MtThread *) override
    {
        while (!_stopRequested)
            if (_device.work())
                tryConsume();
            else
                consume();
    }
    void performStop(MtThread *) override { _stopRequested = true; }

    void consume() override { execute(_fifo->consume()); }
    bool tryConsume() override
    {
        DevANOQueueEntry entry;
        return _fifo->tryConsume(entry) && (execute(entry), true);
    }

private:
    void execute(DevANOQueueEntry entry)
    {
        _clock->consumed();
        ObjPtr<DevANO> const ano(entry.release());
        ano->performExecute();
        ano->notify();
    }

    PlayoutDevice &_device;
    RCShdPtr<DevMDStdFifo> _fifo;
    RCShdPtr<FifoClock> _clock;
    std::atomic<bool> _stopRequested = false;
};

PlayoutDevice::PlayoutDevice(LiString const &name, RCShdPtr<PlayoutJob> const &job)
    : PlayoutDevice(name, job, makeShd<FifoClock>())
{}

PlayoutDevice::PlayoutDevice(LiString const &name, RCShdPtr<PlayoutJob> const &job,
                             RCShdPtr<FifoClock> const &clock)
    : PlayoutDevice(name, job, clock, makeShd<DevMDStdFifo>(clock))
{}

PlayoutDevice::PlayoutDevice(LiString const &name, RCShdPtr<PlayoutJob> const &job,
                             RCShdPtr<FifoClock> const &clock, RCShdPtr<DevMDStdFifo> const &fifo)
    : DevMDStdAccessPrtcl(name, fifo, makeObj<Thread>(*this, fifo, clock),
                          makeObj<AccessANOFactory>()),
      DevMDStdSyncSeqPrtcl(name, fifo, makeObj<SyncSeqANOFactory>(*this)),
      DevMDStdStreamPrtcl(name),
      DevMDStdPropertyPrtcl(name),
      _name(name),
      _job(job),
      _clock(clock),
      _fifo(fifo)
{}

PlayoutDevice::~PlayoutDevice() = default;

PlayoutDevice::Statistics PlayoutDevice::getStatistics() const
{
    Statistics statistics = _statistics;
    statistics.longestWait = _clock->getLongestWait();
    return statistics;
}

void PlayoutDevice::giveUp()
{
    DevANOQueueEntry entry(makeANO([this] { failWithNeighbour(); }));
    _fifo->produce(entry);
}

void PlayoutDevice::addIn(char const *description)
{
    _in =
        makeShd<AudioIn>("in", description, _fifo,
                         makePushANOFactory([this](ObjPtr<DevMDStreamElem> elem) { take(*elem); }));
    addStream(_in);
}

void PlayoutDevice::addOut(char const *description, std::function<AudioFormat()> getFormat)
{
    _out = makeShd<AudioOut>("out", description, _fifo, std::move(getFormat),
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

bool PlayoutDevice::start(ObjPtr<DevANO> abort)
{
    ZV_TRACE(traceLevel, _name << " starts");
    if (_hasFailed) { // with a neighbour that was faster
        abort->performExecute();
        return false;
    }
    _abort = abort;
    _state = State::running;
    return attempt([this] {
        requireStreams();
        performBegin();
    });
}

void PlayoutDevice::sync()
{
    ZV_TRACE(traceLevel, _name << " locks");
    if (_state != State::running)
        return;
    _statistics.lockedAt = Sleeper::getInstance().getTime();
    attempt([this] { performLock(); });
}

void PlayoutDevice::end()
{
    if (_state == State::ended)
        return;
    ZV_TRACE(traceLevel, _name << " ends after " << _statistics.blocks << " blocks");
    performEnd();
    _state = State::ended;
    _statistics.endedAt = Sleeper::getInstance().getTime();
}

void PlayoutDevice::take(DevMDStreamElem const &elem)
{
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

bool PlayoutDevice::work()
{
    bool isMore = false;
    return _state == State::running && !_hasFailed && attempt([&] { isMore = performWork(); }) &&
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
bool PlayoutDevice::attempt(Step step)
{
    try {
        step();
        return true;
    } catch (ExBase const &failure) {
        fail(failure.getReason());
    } catch (std::exception const &failure) {
        fail(failure.what());
    }
    return false;
}

void PlayoutDevice::failWithNeighbour()
{
    attempt([this] { ZV_THROW(PlayoutEx::NeighbourFailed, _name.getChars()); });
}

void PlayoutDevice::fail(char const *reason)
{
    if (_hasFailed || _state == State::ended)
        return;
    ZV_TRACE(traceLevel, _name << " fails: " << reason);
    _hasFailed = true;
    _job->fail(reason);
    performEnd();
    // Executed on this thread, the notification only queues ABORT for the manager's: the lock of the sequence is not
    // taken here, whose holder may be waiting to get a request into this device's FIFO.
    if (_abort)
        _abort->performExecute();
    if (!_in.isNull())
        _in->breakUp();
    if (!_out.isNull() && _out->isConnected())
        _out->push(AudioEv::FAILED);
}
