#include "resmgt/deviceManager/sequence/devSeqSMTable.h"

#include "resmgt/deviceManager/sequence/devSeqEv.h"
#include "resmgt/deviceManager/sequence/seqMachine.private.h"
#include "resmgt/deviceManager/stateMachine/devSMTableBuilder.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "zvbase/failures.h"

namespace Zv {

namespace {

using namespace SeqMachine;

void declareEvents(DevSMTableBuilder &builder, DevSeqEv::Names const &e)
{
    for (char const *name : {e.start, e.ready, e.sready, e.proceed, e.lock, e.mlock, e.recover,
                             e.stop, e.stopped, e.sstopped, e.abort, e.aborted})
        builder.addEvent(name);
}

void declareRow(DevSMTableBuilder &builder, Row const &row)
{
    builder.addTransitionForEvent(row.state, row.event, row.transition);
    builder.setNextState(row.state, row.transition, row.next);
}

void declareAbort(DevSMTableBuilder &builder, DevSeqEv::Names const &e)
{
    for (char const *state : abortable)
        declareRow(builder, {state, e.abort, "abort", "abort"});
    for (char const *ignored : {e.ready, e.sready, e.proceed, e.lock, e.mlock, e.recover, e.stop,
                                e.stopped, e.sstopped, e.abort})
        declareRow(builder, {"abort", ignored, "ignore", "abort"});
}

void verifyEvents(DevSMTable const *smtable, DevSeqEv::Names const *e)
{
    ZV_ASSERT(smtable->getEvent(e->start) == DevSeqEv::START);
    ZV_ASSERT(smtable->getEvent(e->ready) == DevSeqEv::READY);
    ZV_ASSERT(smtable->getEvent(e->sready) == DevSeqEv::SREADY);
    ZV_ASSERT(smtable->getEvent(e->proceed) == DevSeqEv::PROCEED);
    ZV_ASSERT(smtable->getEvent(e->lock) == DevSeqEv::LOCK);
    ZV_ASSERT(smtable->getEvent(e->mlock) == DevSeqEv::MLOCK);
    ZV_ASSERT(smtable->getEvent(e->recover) == DevSeqEv::RECOVER);
    ZV_ASSERT(smtable->getEvent(e->stop) == DevSeqEv::STOP);
    ZV_ASSERT(smtable->getEvent(e->stopped) == DevSeqEv::STOPPED);
    ZV_ASSERT(smtable->getEvent(e->sstopped) == DevSeqEv::SSTOPPED);
    ZV_ASSERT(smtable->getEvent(e->abort) == DevSeqEv::ABORT);
    ZV_ASSERT(smtable->getEvent(e->aborted) == DevSeqEv::ABORTED);
}

} // namespace

DevSeqSMTable::DevSeqSMTable()
{
    DevSeqEv::Names const &e = DevSeqEv::getNames();
    DevSMTableBuilder builder;
    for (char const *state : states)
        builder.addState(state);
    declareEvents(builder, e);
    for (char const *transition : transitions)
        builder.addTransition(transition);
    for (Row const &row : rows)
        declareRow(builder, row);
    declareAbort(builder, e);
    builder.expand();
    _table = builder.createTable();
    verifyEvents(_table.get(), &e);
    _illegal = _table->getTransition("_ill");
}

DevSeqSMTable::~DevSeqSMTable() noexcept(false) = default;

bool DevSeqSMTable::isLegal(std::int32_t state, std::int32_t event) const
{
    DevSMTable const &table = *_table;
    return table.isPrimaryState(state) && table.isPrimaryEvent(event) &&
           table.getTransition(state, event) != _illegal;
}

ZV_DEFINE_SINGLETON(DevSeqSMTable, DevSeqSMTable);

} // namespace Zv
