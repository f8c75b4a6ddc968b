// How a device's report finds its tree.
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <optional>

namespace Zv {

class DevSeqTree;

/// Leads to a tree for as long as there is one. Devices keep their notifications as long as they
/// like; one that reports after the tree's end reports to nobody. A tree that ends waits for the
/// report that is being delivered.
class ZVRESMGT_EXPORT DevSeqTreeLink : public RCBase<LkCounter<long>>
{
public:
    explicit DevSeqTreeLink(DevSeqTree *tree);

    /// Delivers as `DevSeqTree::processEvent` does, or does nothing. Any thread may call it.
    void processEvent(LiString const &name, std::int32_t event);
    void processEvent(LiString const &name, std::int32_t event,
                      std::optional<DevMgrFailure> &failure);
    /// From now on the link leads nowhere. Blocks during a delivery.
    void clear();

protected:
    ~DevSeqTreeLink() override;

private:
    LkLock _lock;
    DevSeqTree *_tree ZV_GUARDED_BY(_lock);
};

} // namespace Zv
