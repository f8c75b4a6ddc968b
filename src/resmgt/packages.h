// The packages of the library and their dependencies (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/inInit.h"

namespace Zv {

/// Lists the packages of the library, each with the packages that it needs, in the order in which
/// these are entered. `ACTIVE` packages have steps of their own, `PASSIVE` packages have none:
/// `threads` decides on real-time operation, allows threads to start and runs the logger. `resmgt`
/// is the library as a whole, and registers its build information.
///
/// Each package is an object that the library enters while it is loaded (statics.cpp).
/// `InPackageScope` runs the packages up and down.
///
///     #include "resmgt/locks.h"
///
///     if (Zv::InInit<Zv::ZvInit::threads>::isInitialized())
///         Zv::MtUtil::yield();
#define ZV_RESMGT_PACKAGES(PASSIVE, ACTIVE)                                                        \
    PASSIVE(locks, base)                                                                           \
    PASSIVE(smartPtrs, locks, base)                                                                \
    PASSIVE(literals, smartPtrs, base)                                                             \
    PASSIVE(containers, smartPtrs, base)                                                           \
    PASSIVE(dynamicAllocation, base)                                                               \
    ACTIVE(threads, literals, smartPtrs, locks, base)                                              \
    PASSIVE(threadExtensions, threads, literals, smartPtrs, locks, base)                           \
    PASSIVE(memoryBuffers, literals, smartPtrs, dynamicAllocation, locks, base)                    \
    PASSIVE(syncEngine, threads, literals, locks, smartPtrs, base)                                 \
    PASSIVE(xml, containers, literals, smartPtrs, locks, base)                                     \
    PASSIVE(deviceProtocol, threadExtensions, threads, containers, literals, smartPtrs, locks,     \
            base)                                                                                  \
    PASSIVE(deviceManager, deviceProtocol, threadExtensions, threads, containers, literals,        \
            smartPtrs, locks, base)                                                                \
    ACTIVE(resmgt, memoryBuffers, syncEngine, deviceManager, deviceProtocol, threadExtensions,     \
           threads, xml, containers, literals, smartPtrs, dynamicAllocation, locks, base)

/// The tags of the packages: `InInit<ZvInit::locks>` is the package of the locks.
namespace ZvInit {

#define ZV_PACKAGE_TAG(Name, ...)                                                                  \
    struct ZVRESMGT_EXPORT Name                                                                    \
    {                                                                                              \
        static constexpr char const *NAME = #Name;                                                 \
        using DependsOn = InDependencies<__VA_ARGS__>;                                             \
    };
ZV_RESMGT_PACKAGES(ZV_PACKAGE_TAG, ZV_PACKAGE_TAG)
#undef ZV_PACKAGE_TAG

} // namespace ZvInit

template <>
ZVRESMGT_EXPORT void InInit<ZvInit::threads>::initPackage();
template <>
ZVRESMGT_EXPORT void InInit<ZvInit::threads>::cleanupPackage();
template <>
ZVRESMGT_EXPORT void InInit<ZvInit::resmgt>::initPackage();

// Specialised members have fixed the visibility of the active packages already.
#define ZV_PASSIVE_PACKAGE(Name, ...) extern template class ZVRESMGT_EXPORT InInit<ZvInit::Name>;
#define ZV_ACTIVE_PACKAGE(Name, ...) extern template class InInit<ZvInit::Name>;
ZV_RESMGT_PACKAGES(ZV_PASSIVE_PACKAGE, ZV_ACTIVE_PACKAGE)
#undef ZV_PASSIVE_PACKAGE
#undef ZV_ACTIVE_PACKAGE

} // namespace Zv
