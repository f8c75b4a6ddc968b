#include "resmgt/memoryBuffers/mbStateMachine.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/memoryBuffers/mbStates.private.h"

namespace Zv {

MbStateMachine::MbStateMachine() = default;
MbStateMachine::~MbStateMachine() noexcept(false) = default;

/// Makes the states, which nobody ever destroys: buffers point to them.
template <bool isTracing>
class MbStateMachineImp : public MbStateMachine
{
public:
    MbStateMachineImp()
    {
        using S = MbStates<isTracing>;
        make<typename S::Freed, typename S::RdLocked, typename S::WrLocked,
             typename S::RdLockedFreed, typename S::WrLockedFreed, typename S::Loaded,
             typename S::Synched, typename S::Unloaded, typename S::Destroyed,
             typename S::WaitAsyncLoaded, typename S::WaitAsyncReloaded,
             typename S::WaitAsyncSynched, typename S::BeingRdLoaded, typename S::BeingWrLoaded,
             typename S::BeingAsyncLoaded, typename S::BeingRdReloaded, typename S::BeingWrReloaded,
             typename S::BeingAsyncReloaded, typename S::BeingSynched,
             typename S::BeingAsyncSynched, typename S::BeingUnlocked, typename S::BeingUnloaded,
             typename S::BeingFreed, typename S::BeingDestroyed, typename S::AsyncLoadSucceeded,
             typename S::AsyncLoadFailed, typename S::AsyncReloadSucceeded,
             typename S::AsyncReloadFailed, typename S::AsyncSyncSucceeded,
             typename S::AsyncSyncFailed>();
    }
    ~MbStateMachineImp() noexcept(false) override = default;

    MbState const *getInitialState() const override
    {
        return MbStates<isTracing>::template the<typename MbStates<isTracing>::Freed>;
    }

private:
    template <class... State>
    void make()
    {
        ((MbStates<isTracing>::template the<State> = new State), ...);
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
