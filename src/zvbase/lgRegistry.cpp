#include "zvbase/lgRegistry.h"

#include <algorithm>

namespace Zv {

LgRegistry::LgRegistry() = default;
LgRegistry::~LgRegistry() = default;

bool LgRegistry::hasQueue(LgQueue *queue)
{
    List<LgQueue *> const queues = getQueues();
    return std::find(queues.begin(), queues.end(), queue) != queues.end();
}

} // namespace Zv
