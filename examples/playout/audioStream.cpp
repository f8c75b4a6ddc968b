#include "audioStream.h"

using namespace Zv;

AudioConnection::AudioConnection(RCShdPtr<DevMDStdFifo> sourceFifo, std::function<void()> onBroken)
    : _sourceFifo(sourceFifo), _onBroken(std::move(onBroken))
{}

bool AudioConnection::push(DevMDStreamPassiveSink &sink, ObjPtr<DevMDStreamElem> elem)
{
    bool const isBlock = elem->getEv() == AudioEv::BLOCK;
    {
        LkGuard<LkMutex const> const guard(_lock);
        _isPushing = true;
        _isWaiting = true;
        while (isBlock && _nbOnTheWay == CAPACITY && !_isBroken && !_isLetGo)
            _changed.waitNextPulse(guard);
        _isWaiting = false;
        if (_isBroken || _isLetGo) {
            _isPushing = false;
            return !_isBroken;
        }
        _nbOnTheWay += isBlock;
    }
    sink.push(elem);
    LkGuard<LkMutex const> const guard(_lock);
    _isPushing = false;
    return !_isBroken;
}

bool AudioConnection::isBroken() const
{
    LkGuard<LkMutex const> const guard(_lock);
    return _isBroken;
}

bool AudioConnection::isWaiting() const
{
    LkGuard<LkMutex const> const guard(_lock);
    return _isWaiting;
}

int AudioConnection::getNbOnTheWay() const
{
    LkGuard<LkMutex const> const guard(_lock);
    return _nbOnTheWay;
}

void AudioConnection::takeUp()
{
    LkGuard<LkMutex const> const guard(_lock);
    --_nbOnTheWay;
    _changed.pulse();
}

void AudioConnection::breakUp()
{
    {
        LkGuard<LkMutex const> const guard(_lock);
        _isBroken = true;
        _changed.pulse();
        if (_isPushing)
            return;
    }
    DevANOQueueEntry entry(makeANO([onBroken = _onBroken] { onBroken(); }));
    _sourceFifo->produce(entry);
}

void AudioConnection::letGo()
{
    LkGuard<LkMutex const> const guard(_lock);
    _isLetGo = true;
    _changed.pulse();
}

bool AudioIn::isCompatible(RCShdPtr<DevMDStreamFormat> const &format)
{
    return !rcDynamicCast<AudioStreamFormat>(format).isNull();
}

void AudioIn::attach(AudioFormat const &format, RCShdPtr<AudioConnection> const &connection)
{
    _format = format;
    _connection = connection;
}

void AudioIn::takeUp()
{
    _connection->takeUp();
}

void AudioIn::breakUp()
{
    if (isConnected())
        _connection->breakUp();
}

AudioOut::AudioOut(LiString const &name, LiString const &description, RCShdPtr<DevMDStdFifo> fifo,
                   std::function<AudioFormat()> getFormat, std::function<void()> onBroken)
    : DevMDStdStreamActiveSource(name, description),
      _fifo(fifo),
      _getFormat(std::move(getFormat)),
      _onBroken(std::move(onBroken))
{}

RCShdPtr<DevMDStreamFormat> AudioOut::getFormat()
{
    return makeShd<AudioStreamFormat>(_getFormat());
}

void AudioOut::connect(RCShdPtr<DevMDStreamPassiveSink> sink)
{
    auto const in = rcDynamicCast<AudioIn>(sink);
    if (in.isNull())
        ZV_THROW(DevMgrEx::BadMDPrtclImp);
    _sink = sink;
    _connection = makeShd<AudioConnection>(_fifo, _onBroken);
    in->attach(_getFormat(), _connection);
}

void AudioOut::letGo()
{
    if (isConnected())
        _connection->letGo();
}

bool AudioOut::push(AudioEv::Ev ev, RCShdPtr<AudioBlock> const &block)
{
    return _connection->push(*_sink, makeObj<DevMDStreamElem>(block, ev));
}
