#include "playoutDevice.h"

#include "playoutEx.h"

using namespace Zv;

namespace {

TraceLevel const &traceLevel = *Trace::registerLevel("playout", __FILE__);

} // namespace

/// Tells the clock of each request that leaves the FIFO.
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
    double performWork() override { return _device.work() ? 0 : NO_WORK; }

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
    : DevMDStdDevice(name, fifo, makeObj<Body>(*this, fifo, clock)),
      _name(name),
      _job(job),
      _clock(clock)
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
    post([this] { failWithNeighbour(); });
}

void PlayoutDevice::post(std::function<void()> function)
{
    DevANOQueueEntry entry(makeANO(std::move(function)));
    getFifo()->produce(entry);
}

void PlayoutDevice::performOpen()
{
    DevMDStdDevice::performOpen();
    if (_isPaced)
        _metronome.start((std::string(_name.getChars()) + " beats").c_str(), getFifo(),
                         [this](std::int64_t beats) { take(beats); });
}

// The metronome may be waiting for the device, which may not wait for it.
void PlayoutDevice::performClose()
{
    _metronome.stop();
    DevMDStdDevice::performClose();
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

void PlayoutDevice::start()
{
    ZV_TRACE(traceLevel, _name << " starts");
    if (_hasFailed) { // with a neighbour that was faster
        reportAbort();
    } else {
        _state = State::running;
        bool const hasBegun = attempt([this] {
            requireStreams();
            performBegin();
        });
        if (hasBegun)
            return;
    }
    // A device that cannot start does not report that it is ready.
    ObjPtr<DevACO> const dropped(takeCompletion());
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
    reportAbort();
    if (!_in.isNull())
        _in->breakUp();
    if (!_out.isNull() && _out->isConnected())
        _out->push(AudioEv::FAILED);
}
