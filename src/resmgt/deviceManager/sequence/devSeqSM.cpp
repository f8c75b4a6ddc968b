#include "resmgt/deviceManager/sequence/devSeqSM.h"

#include "resmgt/deviceManager/sequence/devSeqSMTable.h"

namespace Zv {

namespace {

ObjPtrRet<DevSMExecutionEng> createEngine(ObjPtr<DevSMTransitionFactory> factory)
{
    RCShdPtr<DevSMTable> const table = DevSeqSMTable::getInstance().getTable();
    return DevSMExecutionEng::create(table, table->getState("init"), factory);
}

} // namespace

DevSeqSM::DevSeqSM(ObjPtr<DevSMTransitionFactory> factory, RCShdPtr<DevSeqEvPend> evPend,
                   LiString const &label)
    : _engine(createEngine(factory)), _evPend(evPend), _label(label)
{}

DevSeqSM::~DevSeqSM() noexcept(false) = default;

void DevSeqSM::execute(std::int32_t event)
{
    step(event);
    while (_evPend->isReleased())
        for (std::int32_t const parked : _evPend->take())
            step(parked);
}

void DevSeqSM::step(std::int32_t event)
{
    if (!_guard)
        return _engine->execute(event);
    std::int32_t const former = _engine->getState();
    if (!DevSeqSMTable::getInstance().isLegal(former, event))
        return _guard->refused(event);
    _engine->execute(event);
    if (std::int32_t const state = _engine->getState(); state != former)
        _guard->stateChanged(state);
}

LiString DevSeqSM::getStateName() const
{
    return _engine->getTable()->getStateName(_engine->getState());
}

} // namespace Zv
