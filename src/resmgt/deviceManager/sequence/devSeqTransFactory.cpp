#include "resmgt/deviceManager/sequence/devSeqTransFactory.h"

#include "resmgt/deviceManager/sequence/devSeqEv.h"

namespace Zv {

namespace {

/// What all transitions of one node work on.
class SeqTransBase
{
public:
    SeqTransBase(RCShdPtr<DevSeqEvPend> const &evPend, RCShdPtr<DevSeqTreeNodeUtil> const &nodeUtil,
                 RCShdPtr<DevSeqPrtclUtil> const &prtclUtil)
        : _evPend(evPend), _nodeUtil(nodeUtil), _prtclUtil(prtclUtil)
    {}
    SeqTransBase(SeqTransBase const &) = delete;
    SeqTransBase &operator=(SeqTransBase const &) = delete;

protected:
    virtual ~SeqTransBase() noexcept(false) = 0;

    bool hasChildren() const { return _nodeUtil->getNbChildren() != 0; }
    void sendToChildrenIfAny(std::int32_t event)
    {
        if (hasChildren())
            _nodeUtil->sendToChildren(event);
    }
    void sendToParentIfAny(std::int32_t event)
    {
        if (_nodeUtil->hasParent())
            _nodeUtil->sendToParent(event);
    }

    RCShdPtr<DevSeqEvPend> _evPend;
    RCShdPtr<DevSeqTreeNodeUtil> _nodeUtil;
    RCShdPtr<DevSeqPrtclUtil> _prtclUtil;
};

SeqTransBase::~SeqTransBase() noexcept(false) = default;

template <class Name>
class SeqTrans final : public DevSMTransition, public SeqTransBase
{
public:
    template <class... References>
    explicit SeqTrans(LiString const &name, References const &...references)
        : DevSMTransition(name), SeqTransBase(references...)
    {}

    void execute() override;
};

template <class Name>
class SeqCondTrans final : public DevSMConditionalTransition, public SeqTransBase
{
public:
    template <class... References>
    explicit SeqCondTrans(LiString const &name, References const &...references)
        : DevSMConditionalTransition(name), SeqTransBase(references...)
    {}

    void execute() override;
    bool condition() override;
};

/// A tag for each transition.
struct SeqTransName
{
    struct Start;
    struct Psready;
    struct Wsr;
    struct Wsrret;
    struct Ready;
    struct Wml;
    struct Sync;
    struct Lock;
    struct Recover;
    struct Wss;
    struct Wssret;
    struct Stop;
    struct Pstop;
    struct Stopped;
    struct Abort;
    struct Aborted;
    struct Ignore;
};

template <>
void SeqTrans<SeqTransName::Start>::execute()
{
    _prtclUtil->start();
    sendToChildrenIfAny(DevSeqEv::START);
}

template <>
void SeqTrans<SeqTransName::Psready>::execute()
{
    _evPend->addEvent(DevSeqEv::SREADY);
}

template <>
void SeqTrans<SeqTransName::Wsr>::execute()
{
    _nodeUtil->setSreadyCount(0);
    _evPend->release();
}

template <>
void SeqCondTrans<SeqTransName::Wsrret>::execute()
{
    _nodeUtil->setSreadyCount(_nodeUtil->getSreadyCount() + 1);
}

// Asked before this child is counted: the last one is not waited for any more.
template <>
bool SeqCondTrans<SeqTransName::Wsrret>::condition()
{
    return _nodeUtil->getNbChildren() != _nodeUtil->getSreadyCount() + 1;
}

template <>
void SeqCondTrans<SeqTransName::Ready>::execute()
{
    _nodeUtil->setLatency(_prtclUtil->getLatency());
    sendToParentIfAny(DevSeqEv::SREADY);
    _nodeUtil->sendToSelf(DevSeqEv::PROCEED);
}

template <>
bool SeqCondTrans<SeqTransName::Ready>::condition()
{
    return !hasChildren();
}

template <>
void SeqTrans<SeqTransName::Wml>::execute()
{}

template <>
void SeqCondTrans<SeqTransName::Sync>::execute()
{
    if (_nodeUtil->hasParent())
        _prtclUtil->sync(_nodeUtil->getParentMark());
    else
        _prtclUtil->sync(_nodeUtil->getMaxLatency());
}

template <>
bool SeqCondTrans<SeqTransName::Sync>::condition()
{
    return !_nodeUtil->hasParent();
}

template <>
void SeqTrans<SeqTransName::Lock>::execute()
{
    _nodeUtil->setMark(_prtclUtil->getMark());
    sendToChildrenIfAny(DevSeqEv::MLOCK);
    _evPend->release();
}

template <>
void SeqTrans<SeqTransName::Recover>::execute()
{
    _prtclUtil->recover();
    sendToChildrenIfAny(DevSeqEv::RECOVER);
}

template <>
void SeqTrans<SeqTransName::Wss>::execute()
{
    sendToChildrenIfAny(DevSeqEv::STOP);
    _nodeUtil->setSstoppedCount(0);
    _evPend->release();
}

template <>
void SeqCondTrans<SeqTransName::Wssret>::execute()
{
    _nodeUtil->setSstoppedCount(_nodeUtil->getSstoppedCount() + 1);
}

// Asked before this child is counted: the last one is not waited for any more.
template <>
bool SeqCondTrans<SeqTransName::Wssret>::condition()
{
    return _nodeUtil->getNbChildren() != _nodeUtil->getSstoppedCount() + 1;
}

template <>
void SeqCondTrans<SeqTransName::Stop>::execute()
{
    _prtclUtil->stop();
}

template <>
bool SeqCondTrans<SeqTransName::Stop>::condition()
{
    return !hasChildren();
}

template <>
void SeqTrans<SeqTransName::Pstop>::execute()
{
    _evPend->addEvent(DevSeqEv::STOP);
}

template <>
void SeqTrans<SeqTransName::Stopped>::execute()
{
    sendToParentIfAny(DevSeqEv::SSTOPPED);
    _nodeUtil->postDone();
}

template <>
void SeqTrans<SeqTransName::Abort>::execute()
{
    _prtclUtil->abort();
}

template <>
void SeqTrans<SeqTransName::Aborted>::execute()
{
    _nodeUtil->postDone();
}

template <>
void SeqTrans<SeqTransName::Ignore>::execute()
{}

template <class Transition>
DevSMTransition *make(LiString const &name, RCShdPtr<DevSeqEvPend> const &evPend,
                      RCShdPtr<DevSeqTreeNodeUtil> const &nodeUtil,
                      RCShdPtr<DevSeqPrtclUtil> const &prtclUtil)
{
    return new Transition(name, evPend, nodeUtil, prtclUtil);
}

struct Maker
{
    char const *name;
    decltype(&make<SeqTrans<SeqTransName::Start>>) make;
};

constexpr Maker makers[] = {
    {"start", make<SeqTrans<SeqTransName::Start>>},
    {"psready", make<SeqTrans<SeqTransName::Psready>>},
    {"wsr", make<SeqTrans<SeqTransName::Wsr>>},
    {"wsrret", make<SeqCondTrans<SeqTransName::Wsrret>>},
    {"ready", make<SeqCondTrans<SeqTransName::Ready>>},
    {"wml", make<SeqTrans<SeqTransName::Wml>>},
    {"sync", make<SeqCondTrans<SeqTransName::Sync>>},
    {"lock", make<SeqTrans<SeqTransName::Lock>>},
    {"recover", make<SeqTrans<SeqTransName::Recover>>},
    {"wss", make<SeqTrans<SeqTransName::Wss>>},
    {"wssret", make<SeqCondTrans<SeqTransName::Wssret>>},
    {"stop", make<SeqCondTrans<SeqTransName::Stop>>},
    {"pstop", make<SeqTrans<SeqTransName::Pstop>>},
    {"stopped", make<SeqTrans<SeqTransName::Stopped>>},
    {"abort", make<SeqTrans<SeqTransName::Abort>>},
    {"aborted", make<SeqTrans<SeqTransName::Aborted>>},
    {"ignore", make<SeqTrans<SeqTransName::Ignore>>},
};

} // namespace

DevSeqTransFactory::DevSeqTransFactory(RCShdPtr<DevSeqEvPend> evPend,
                                       RCShdPtr<DevSeqTreeNodeUtil> nodeUtil,
                                       RCShdPtr<DevSeqPrtclUtil> prtclUtil)
    : _evPend(evPend), _nodeUtil(nodeUtil), _prtclUtil(prtclUtil)
{}

DevSeqTransFactory::~DevSeqTransFactory() = default;

RCShdPtr<DevSMTransition> DevSeqTransFactory::create(LiString const &name)
{
    for (Maker const &maker : makers)
        if (name == maker.name)
            return maker.make(name, _evPend, _nodeUtil, _prtclUtil);
    return nullptr;
}

} // namespace Zv
