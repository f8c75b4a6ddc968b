// Two counters in a tree: started, read, stopped.

#include "counter.h"

#include <zvbase/zvbase.h>

#include <iostream>

int main()
{
    using namespace Zv;
    InPackageScope packages; // first in every application
    try {
        DevRegistry::getInstance().add(makeCounterEntry("master"));
        DevRegistry::getInstance().add(makeCounterEntry("slave"));

        ObjPtr<DevMgr> manager = DevMgr::create();
        ObjPtr<DevMgrSeqSupervisor> sequence = manager->createSeqSupervisor("( master ( slave ) )");
        ObjPtr<DevMgrPropertyAcc> properties = manager->createPropertyAcc();

        DevMgrPropertyValueUtil<int>::setValue(*properties, "slave:count", 41);
        sequence->start();
        if (!sequence->waitLocked(10)) // seconds
            std::cerr << "The devices need longer than usual.\n";
        int count = 0;
        DevMgrPropertyValueUtil<int>::getValue(*properties, "slave:count", count);
        DevSeqDeviceStatus const slave = sequence->stop(10).devices[1];
        std::cout << "The slave has counted to " << count << " and is in state " << slave.state
                  << ".\n";
    } catch (ExBase const &failure) {
        std::cerr << failure.getReason() << '\n';
        return 1;
    }
}
