#include "resmgt/memoryBuffers/mbStateMachine.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/memoryBuffers/mbEx.h"
#include "resmgt/memoryBuffers/mbStates.private.h"
#include "resmgt/memoryBuffers/memoryBuffersStatics.private.h"
#include "zvbase/failures.h"
#include "zvbase/trace.h"

#include <new>
#include <string>

namespace Zv {

MbState::MbState() = default;
MbState::~MbState() noexcept(false) = default;

void MbStateImp::refuse(MbBufferImp const &buffer, MbEvent event) const
{
    ZV_THROW(MbEx::ExIllegalTransition, buffer.getName().getChars(),
             (std::string(MbTable::nameOf(event)) + "()").c_str(), getName());
}

void MbStateImp::write(MbBufferImp const &buffer, char const *what) const
{
    try {
        ZV_TRACE(*MemoryBuffersStatics::mbBuffersLevel,
                 "MbBuffer : " << buffer.getName() << " [ Lock count = " << buffer.getLockCount()
                               << " ] -->  " << getName() << "::" << what);
    } catch (std::bad_alloc const &) {
        // What happens to the buffer must not depend on whether it can be traced.
    }
}

MbStateMachine::MbStateMachine() = default;
MbStateMachine::~MbStateMachine() noexcept(false) = default;

template <bool isTracing>
class MbStateMachineImp : public MbStateMachine
{
public:
    MbStateMachineImp() { MbStates<isTracing>::make(); }
    ~MbStateMachineImp() noexcept(false) override = default;

    MbState const *getInitialState() const override
    {
        return MbStates<isTracing>::the[static_cast<std::size_t>(MbStateId::FREED)];
    }
};

ZV_DEFINE_SINGLETON(MbStateMachineImp<false>, MbStateMachineImp<false>);
ZV_DEFINE_SINGLETON(MbStateMachineImp<true>, MbStateMachineImp<true>);

MbStateMachine &MbStateMachine::getInstance(bool trace)
{
    if (trace)
        return LkSingleton<MbStateMachineImp<true>>::getInstance();
    return LkSingleton<MbStateMachineImp<false>>::getInstance();
}

} // namespace Zv
