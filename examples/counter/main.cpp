// zvcounter: starts two counters in a tree, reads a property and stops them.
//
// Prints:
//
//     The child has counted to 1.
//     parent is in state final.
//     child is in state final.

#include "counter.h"

#include <zvbase/zvbase.h>

#include <iostream>

namespace {

void count()
{
    using namespace Zv;
    DevRegistry::getInstance().add(makeCounterEntry("parent"));
    DevRegistry::getInstance().add(makeCounterEntry("child"));
    ObjPtr<DevMgr> manager = DevMgr::create();
    ObjPtr<DevMgrSeqSupervisor> sequence = manager->createSeqSupervisor("( parent ( child ) )");
    ObjPtr<DevMgrPropertyAcc> properties = manager->createPropertyAcc();

    sequence->start();
    if (!sequence->waitLocked(10)) // seconds
        std::cerr << "The devices need longer than usual.\n";
    int count = 0;
    DevMgrPropertyValueUtil<int>::getValue(*properties, "child:count", count);
    std::cout << "The child has counted to " << count << ".\n";
    for (DevSeqDeviceStatus const &device : sequence->stop(10).devices)
        std::cout << device.name << " is in state " << device.state << ".\n";
}

} // namespace

int main()
{
    Zv::InPackageScope packages; // first in every application
    try {
        count();
    } catch (Zv::ExBase const &failure) {
        std::cerr << failure.getReason() << '\n';
        return 1;
    }
}
