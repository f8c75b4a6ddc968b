// Two counters in a tree: started, read, stopped.

#include "counter.h"

#include <resmgt/locks.h>
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
        ObjPtr<DevMgrSyncSeqAcc> sequence = manager->createSyncSeqAcc();
        ObjPtr<DevMgrPropertyAcc> properties = manager->createPropertyAcc();

        sequence->configure("( master ( slave ) )");
        DevMgrPropertyValueUtil<int>::setValue(*properties, "slave:count", 41);
        sequence->start();
        while (sequence->getState("slave") != "lock")
            MtUtil::yield();
        int count = 0;
        DevMgrPropertyValueUtil<int>::getValue(*properties, "slave:count", count);
        sequence->stop();
        sequence->wait();
        std::cout << "The slave has counted to " << count << " and is in state "
                  << sequence->getState("slave") << ".\n";
    } catch (ExBase const &failure) {
        std::cerr << failure.getReason() << '\n';
        return 1;
    }
}
