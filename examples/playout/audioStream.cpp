#include "audioStream.h"

using namespace Zv;

AudioConnection::AudioConnection(RCShdPtr<DevMDStdFifo> sourceFifo, std::function<void()> onBroken)
    : _sourceFifo(sourceFifo), _onBroken(std::move(onBroken))
{}

bool AudioConnection::push(DevMDStreamPassiveSink &sink, ObjPtr<DevMDStreamElem> elem)
{
    _isPushing = true;
    if (!_isBroken)
        sink.push(elem);
    _isPushing = false;
    return !_isBroken;
}

void AudioConnection::breakUp()
{
    _isBroken = true;
    if (_isPushing)
        return; // the source looks at the flag next
    DevANOQueueEntry entry(makeANO([onBroken = _onBroken] { onBroken(); }));
    _sourceFifo->produce(entry);
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

bool AudioOut::push(AudioEv::Ev ev, RCShdPtr<AudioBlock> const &block)
{
    return _connection->push(*_sink, makeObj<DevMDStreamElem>(block, ev));
}
