// The package objects, for those who look at them from inside.
#pragma once

#include "resmgt/packages.h"
#include "zvbase/immortal.h"

namespace Zv::PackageStatics {

extern Immortal<InInit<ZvInit::containers>> containers;
extern Immortal<InInit<ZvInit::deviceManager>> deviceManager;
extern Immortal<InInit<ZvInit::deviceProtocol>> deviceProtocol;
extern Immortal<InInit<ZvInit::dynamicAllocation>> dynamicAllocation;
extern Immortal<InInit<ZvInit::literals>> literals;
extern Immortal<InInit<ZvInit::locks>> locks;
extern Immortal<InInit<ZvInit::memoryBuffers>> memoryBuffers;
extern Immortal<InInit<ZvInit::resmgt>> resmgt;
extern Immortal<InInit<ZvInit::smartPtrs>> smartPtrs;
extern Immortal<InInit<ZvInit::syncEngine>> syncEngine;
extern Immortal<InInit<ZvInit::threadExtensions>> threadExtensions;
extern Immortal<InInit<ZvInit::threads>> threads;
extern Immortal<InInit<ZvInit::xml>> xml;

} // namespace Zv::PackageStatics
