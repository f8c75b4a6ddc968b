#include "resmgt/deviceManager/stateMachine/devSMTransition.h"

namespace Zv {

DevSMTransition::DevSMTransition(LiString const &name) : _name(name) {}

DevSMTransition::~DevSMTransition() = default;

DevSMConditionalTransition::~DevSMConditionalTransition() = default;

DevSMTransitionFactory::~DevSMTransitionFactory() noexcept(false) = default;

} // namespace Zv
