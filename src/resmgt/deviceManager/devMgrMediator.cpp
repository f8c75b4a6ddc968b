#include "resmgt/deviceManager/devMgrMediator.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/devMgrThread.private.h"
#include "resmgt/deviceManager/devRegistry.h"
#include "resmgt/locks/lkGuard.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"

#include <utility>

namespace Zv {

namespace {

constexpr int FIFO_CAPACITY = 25;

} // namespace

DevMgrMediator::DevMgrMediator()
    : _configLock("DevMgrMediator ConfigLock"),
      _prtclMapLock("DevMgrMediator MapLock"),
      _fifo(new DevMgrFifo(FIFO_CAPACITY))
{
    _thread = makeObj<DevMgrThread>(_fifo);
}

DevMgrMediator::~DevMgrMediator() noexcept(false)
    ZV_NO_THREAD_SAFETY_ANALYSIS // no other owner remains
{
    bool const isDestroyedOnDevMgrANO = _thread->isCurrentThread();
    if (isDestroyedOnDevMgrANO) {
        // The thread cannot wait for its own end, nor for devices that may wait for it: they are left behind.
        static_cast<void>(_thread.release());
        static_cast<void>(new auto(std::exchange(_opened, {})));
        static_cast<void>(new auto(std::exchange(_prtclMap, {})));
    }
    ZV_ASSERT_IN_DESTRUCTOR(!isDestroyedOnDevMgrANO);
    FirstFailure failure;
    auto opened = std::move(_opened);
    for (; !opened.empty(); opened.pop_back())
        failure.attempt([&opened] { opened.back()->performClose(); });
    releaseEach(_prtclMap, failure);
    failure.rethrow();
}

void DevMgrMediator::setFailureHandler(RCShdPtr<DevMgrFailureHandler> const &handler)
{
    _thread->setFailureHandler(handler);
}

bool DevMgrMediator::isPrtclCreated(LiString const &name) const
{
    LkGuard<LkLock const> const guard(_prtclMapLock);
    return _prtclMap.contains(name);
}

RCShdPtr<DevMDPrtcl> DevMgrMediator::getPrtcl(LiString const &name) const
{
    LkGuard<LkLock const> const guard(_prtclMapLock);
    auto const entry = _prtclMap.find(name);
    if (entry == _prtclMap.end())
        ZV_THROW(DevMgrEx::NameNotFound);
    return entry->second;
}

void DevMgrMediator::createPrtcl(LiString const &name)
{
    if (isPrtclCreated(name))
        return;
    RCShdPtr<DevMDPrtcl> const created = DevRegistry::getInstance().createPrtcl(name);
    {
        LkGuard<LkLock const> const guard(_prtclMapLock);
        _prtclMap.emplace(name, created);
    }
    RCShdPtr<DevMDPrtcl> const prtcl = getPrtcl(name);
    ZV_ASSERT(!prtcl.isNull());
    if (auto const access = rcDynamicCast<DevMDAccessPrtcl>(prtcl); !access.isNull()) {
        // A device that is open will be closed. Room for one alone would move all of them each time.
        if (_opened.size() == _opened.capacity())
            _opened.reserve(2 * _opened.size() + 1);
        access->performOpen();
        _opened.push_back(access);
    }
}

} // namespace Zv
