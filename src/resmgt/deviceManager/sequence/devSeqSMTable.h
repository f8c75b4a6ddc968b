// The machine that every device runs.
#pragma once

#include "resmgt/deviceManager/stateMachine/devSMTable.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/smartPtrs/rcShdPtr.h"

#include <cstdint>

namespace Zv {

/// The sequence machine: from `init` through `start`, readiness and `sync` to `lock`, and by `stop`
/// or `abort` to `final`, together with the machines of the device's parent and children. Made at
/// first use; all machines of all trees share its one table.
///
///     init     start -> start            sync     lock -> lock
///     start    ready -> ready, wsr       lock     stop -> stop, wss
///     wsr      sready -> wsr, ready               recover -> recover
///     ready    proceed -> sync, wml               sready -> lock
///     wml      mlock -> sync             recover  ready -> ready, wsr
///     wss      sstopped -> wss, stop     stop     stopped -> final
///
/// From every state between `init` and `final`, `abort` leads to `abort`, where all but `start` is
/// ignored and `aborted` leads to `final`. A child's `sready` that comes before the node's own
/// `ready` is kept until then, and a `stop` that comes before `lock` until the lock.
class ZVRESMGT_EXPORT DevSeqSMTable
{
public:
    static DevSeqSMTable &getInstance();

    DevSeqSMTable(DevSeqSMTable const &) = delete;
    DevSeqSMTable &operator=(DevSeqSMTable const &) = delete;
    ~DevSeqSMTable() noexcept(false);

    RCShdPtr<DevSMTable> getTable() const { return _table; }
    /// Whether the event leads a machine in this state elsewhere than to `_ill`. In `_ill` and `_exc` none does.
    bool isLegal(std::int32_t state, std::int32_t event) const;

private:
    friend struct LkSingletonCreator<DevSeqSMTable>;

    DevSeqSMTable();

    RCShdPtr<DevSMTable> _table;
    std::int32_t _illegal = -1; // the number of the transition
};
ZV_DECLARE_SINGLETON(DevSeqSMTable);

} // namespace Zv
