#include "resmgt/deviceManager/access/devMgrStreamAcc.h"

#include "resmgt/deviceManager/access/configParsers.private.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/deviceProtocol/devMDStream.h"
#include "resmgt/locks/lkGuard.h"
#include "zvbase/containers.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"

namespace Zv {

namespace {

LiString withoutSpace(LiString const &text)
{
    LiString result;
    for (int i = 0; i < text.getLength(); ++i)
        if (char const c = text.getChars()[i]; !isConfigSpace(c))
            result += c;
    return result;
}

/// Returns the stream by the interface that the verb needs. Throws `DevMgrEx::BadMDPrtclImp` if the
/// stream does not have it.
template <class Face>
RCShdPtr<Face> as(RCShdPtr<DevMDStream> const &stream)
{
    auto const face = rcDynamicCast<Face>(stream);
    if (face.isNull())
        ZV_THROW(DevMgrEx::BadMDPrtclImp);
    return face;
}

class DevMgrStreamAccImp : public DevMgrStreamAcc
{
public:
    explicit DevMgrStreamAccImp(RCShdPtr<DevMgrMediator> const &mediator) : _mediator(mediator) {}

    ~DevMgrStreamAccImp() noexcept(false) override
    {
        FirstFailure failure;
        for (auto const &stream : _started)
            failure.attempt([&stream] { stream->stop(); });
        releaseEach(_started, failure);
        releaseEach(_streamMap, failure);
        failure.rethrow();
    }

    void parseConfig(LiString const &config) override { StreamConfigParser parser(config); }

    void connect(LiString const &config) override
    {
        RCShdPtr<DevMgrMediator> const mediator = _mediator;
        LkGuard const guard(_mediator->getLock());
        mediator->expectNotClosed();
        StreamConfigParser const parser(config);
        StreamId const sourceStreamId(parser.getSourceDevice(), parser.getSourceStream());
        StreamId const sinkStreamId(parser.getSinkDevice(), parser.getSinkStream());
        ensureRegistered(parser.getSourceDevice(), parser.getSourceStream(), sourceStreamId);
        ensureRegistered(parser.getSinkDevice(), parser.getSinkStream(), sinkStreamId);
        ZV_ASSERT(isRegisteredNoGuard( sourceStreamId ));
        ZV_ASSERT(isRegisteredNoGuard( sinkStreamId ));

        RCShdPtr<DevMDStream> const source = _streamMap[sourceStreamId.getId()];
        RCShdPtr<DevMDStream> const sink = _streamMap[sinkStreamId.getId()];
        if (!source->isAvailable() || !sink->isAvailable())
            ZV_THROW(DevMgrEx::StreamNotAvailable, sourceStreamId.getId().getChars());
        auto const anySource = rcDynamicCast<DevMDStreamSource>(source);
        auto const anySink = rcDynamicCast<DevMDStreamSink>(sink);
        if (anySource.isNull() || anySink.isNull())
            ZV_THROW(DevMgrEx::BadMDPrtclImp);
        if (!anySink->isCompatible(anySource->getFormat()))
            ZV_THROW(DevMgrEx::StreamsNotCompatible, config.getChars());

        if (parser.getVerb() == StreamConfigParser::PUSH) {
            join(as<DevMDStreamActiveSource>(source), as<DevMDStreamPassiveSink>(sink));
        } else {
            ZV_ASSERT(StreamConfigParser::PULL == parser.getVerb());
            join(as<DevMDStreamActiveSink>(sink), as<DevMDStreamPassiveSource>(source));
        }
    }

    void registerStream(StreamId const &id, RCShdPtr<DevMDStream> stream) override
    {
        RCShdPtr<DevMgrMediator> const mediator = _mediator;
        LkGuard const guard(_mediator->getLock());
        mediator->expectNotClosed();
        registerNoGuard(id, stream);
    }

    bool isRegistered(StreamId const &id) override
    {
        RCShdPtr<DevMgrMediator> const mediator = _mediator;
        LkGuard const guard(_mediator->getLock());
        mediator->expectNotClosed();
        return isRegisteredNoGuard(id);
    }

    void registerNoGuard(StreamId const &id, RCShdPtr<DevMDStream> stream) override
    {
        if (!_streamMap.emplace(id.getId(), stream).second)
            ZV_THROW(DevMgrEx::NameNotUnique);
    }

    bool isRegisteredNoGuard(StreamId const &id) override
    {
        return _streamMap.contains(id.getId());
    }

private:
    void ensureRegistered(LiString const &device, LiString const &stream, StreamId const &id)
        ZV_REQUIRES(_mediator->getLock())
    {
        if (isRegisteredNoGuard(id))
            return;
        if (device == _nullString)
            ZV_THROW(DevMgrEx::NameNotRegistered);
        registerNoGuard(id, findStream(device, stream));
    }

    RCShdPtr<DevMDStream> findStream(LiString const &device, LiString const &stream)
        ZV_REQUIRES(_mediator->getLock())
    {
        _mediator->createPrtcl(device);
        auto const prtcl = rcDynamicCast<DevMDStreamPrtcl>(_mediator->getPrtcl(device));
        if (prtcl.isNull())
            ZV_THROW(DevMgrEx::BadMDPrtclImp);
        for (auto iter = prtcl->performGetStreams(); !iter.atEnd(); ++iter)
            if ((*iter)->getName() == stream)
                return *iter;
        ZV_THROW(DevMgrEx::NameNotFound);
    }

    /// Connects the two ends and starts them. The passive end starts first, because the active end
    /// may call it at once.
    template <class Active, class Passive>
    void join(RCShdPtr<Active> const &active, RCShdPtr<Passive> const &passive)
    {
        active->connect(passive);
        startStream(passive);
        startStream(active);
    }

    void startStream(RCShdPtr<DevMDStream> const &stream)
    {
        // Allocated first, so that recording a running stream needs no memory.
        List<RCShdPtr<DevMDStream>> started{stream};
        stream->start();
        _started.splice(_started.begin(), started);
    }

    RCShdPtr<DevMgrMediator> _mediator;
    HashMap<LiString, RCShdPtr<DevMDStream>> _streamMap;
    List<RCShdPtr<DevMDStream>> _started; ///< the latest first
    LiString const _nullString;
};

} // namespace

DevMgrStreamAcc::StreamId::StreamId(LiString const &stream) : StreamId(LiString(), stream) {}

DevMgrStreamAcc::StreamId::StreamId(LiString const &device, LiString const &stream)
    : _id(withoutSpace(device + ":" + stream))
{}

DevMgrStreamAcc::~DevMgrStreamAcc() noexcept(false) = default;

ObjPtrRet<DevMgrStreamAcc> DevMgrStreamAcc::create(RCShdPtr<DevMgrMediator> const &mediator)
{
    return makeObj<DevMgrStreamAccImp>(mediator);
}

} // namespace Zv
