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
    _engine->execute(event);
    while (_evPend->isReleased())
        for (std::int32_t const parked : _evPend->take())
            _engine->execute(parked);
}

LiString DevSeqSM::getStateName() const
{
    return _engine->getTable()->getStateName(_engine->getState());
}

} // namespace Zv
