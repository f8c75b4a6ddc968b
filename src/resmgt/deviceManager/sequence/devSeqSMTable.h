// Table of the sequence machine, which every device in a sequence runs (extenders).
#pragma once

#include "resmgt/deviceManager/stateMachine/devSMTable.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/smartPtrs/rcShdPtr.h"

#include <cstdint>

namespace Zv {

/// The table of the sequence machine. A device goes from `init` through `start`, `ready` and `sync`
/// to `lock`, and through `stop` or `abort` to `final`, together with its parent and its children.
/// The table is made at its first use. All machines share it:
///
///     init     start -> start            sync     lock -> lock
///     start    ready -> ready, wsr       lock     stop -> stop, wss
///     wsr      sready -> wsr, ready               recover -> recover
///     ready    proceed -> sync, wml               sready -> lock
///     wml      mlock -> sync             recover  ready -> ready, wsr
///                                                 mlock -> lock
///     wss      sstopped -> wss, stop     stop     stopped -> final
///
/// From every state between `init` and `final`, `abort` leads to `abort`. There every event but
/// `start` is ignored, and `aborted` leads to `final`. A child's `sready` that comes before the
/// node's own `ready` is kept until then. A `stop` that comes before `lock` is kept until the lock.
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT DevSeqSMTable
{
public:
    /// Returns the only instance. Throws what its construction throws.
    static DevSeqSMTable &getInstance();

    DevSeqSMTable(DevSeqSMTable const &) = delete;
    DevSeqSMTable &operator=(DevSeqSMTable const &) = delete;
    ~DevSeqSMTable() noexcept(false);

    RCShdPtr<DevSMTable> getTable() const { return _table; }
    /// Returns true if the event is legal in the state. In `_ill` and `_exc` no event is.
    bool isLegal(std::int32_t state, std::int32_t event) const;

private:
    friend struct LkSingletonCreator<DevSeqSMTable>;

    DevSeqSMTable();

    RCShdPtr<DevSMTable> _table;
    std::int32_t _illegal = -1; // the number of the transition
};
ZV_DECLARE_SINGLETON(DevSeqSMTable);

} // namespace Zv
