// Operations on words that threads share.
#include "platform/scheduler/scheduler.h"
#include "zvbase/platform/shared.h"

namespace ZvPlatform::Simulated {

void reachShared(char const *operation, void const *word)
{
    enter(operation, word);
}

} // namespace ZvPlatform::Simulated
