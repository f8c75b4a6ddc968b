#include "resmgt/deviceManager/access/devMgrPropertyUtil.h"

namespace Zv {

void DevMgrPropertyObserverUtil::attachObserver(DevMgrPropertyAcc &access, LiString const &config,
                                                RCShdPtr<DevMgrPropertyObserver> observer)
{
    access.attachObserver(access.getProperty(config), observer);
}

void DevMgrPropertyObserverUtil::detachObserver(DevMgrPropertyAcc &access, LiString const &config,
                                                RCShdPtr<DevMgrPropertyObserver> observer)
{
    access.detachObserver(access.getProperty(config), observer);
}

} // namespace Zv
