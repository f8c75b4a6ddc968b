// The packages of the library, each with the packages that it needs.
#pragma once

#include "resmgt/export.h"
#include "zvbase/inInit.h"

namespace Zv {

/// Each package is an object that the library enters while it loads; `InPackageScope` runs them up and down. The order
/// in `DependsOn` is the order in which the dependencies are entered.
///
/// Two of them have something to do. `threads` decides on real-time operation, allows threads to start and runs the
/// logger; `resmgt`, which stands for the whole library, registers its build information.
namespace ZvInit {

struct ZVRESMGT_EXPORT locks
{
    static constexpr char const *NAME = "locks";
    using DependsOn = InDependencies<base>;
};

struct ZVRESMGT_EXPORT smartPtrs
{
    static constexpr char const *NAME = "smartPtrs";
    using DependsOn = InDependencies<locks, base>;
};

struct ZVRESMGT_EXPORT literals
{
    static constexpr char const *NAME = "literals";
    using DependsOn = InDependencies<smartPtrs, base>;
};

struct ZVRESMGT_EXPORT containers
{
    static constexpr char const *NAME = "containers";
    using DependsOn = InDependencies<smartPtrs, base>;
};

struct ZVRESMGT_EXPORT dynamicAllocation
{
    static constexpr char const *NAME = "dynamicAllocation";
    using DependsOn = InDependencies<base>;
};

struct ZVRESMGT_EXPORT threads
{
    static constexpr char const *NAME = "threads";
    using DependsOn = InDependencies<literals, smartPtrs, locks, base>;
};

struct ZVRESMGT_EXPORT threadExtensions
{
    static constexpr char const *NAME = "threadExtensions";
    using DependsOn = InDependencies<threads, literals, smartPtrs, locks, base>;
};

struct ZVRESMGT_EXPORT memoryBuffers
{
    static constexpr char const *NAME = "memoryBuffers";
    using DependsOn = InDependencies<literals, smartPtrs, dynamicAllocation, locks, base>;
};

struct ZVRESMGT_EXPORT syncEngine
{
    static constexpr char const *NAME = "syncEngine";
    using DependsOn = InDependencies<threads, literals, locks, smartPtrs, base>;
};

struct ZVRESMGT_EXPORT xml
{
    static constexpr char const *NAME = "xml";
    using DependsOn = InDependencies<containers, literals, smartPtrs, locks, base>;
};

struct ZVRESMGT_EXPORT deviceProtocol
{
    static constexpr char const *NAME = "deviceProtocol";
    using DependsOn =
        InDependencies<threadExtensions, threads, containers, literals, smartPtrs, locks, base>;
};

struct ZVRESMGT_EXPORT deviceManager
{
    static constexpr char const *NAME = "deviceManager";
    using DependsOn = InDependencies<deviceProtocol, threadExtensions, threads, containers,
                                     literals, smartPtrs, locks, base>;
};

struct ZVRESMGT_EXPORT resmgt
{
    static constexpr char const *NAME = "resmgt";
    using DependsOn = InDependencies<memoryBuffers, syncEngine, deviceManager, deviceProtocol,
                                     threadExtensions, threads, xml, containers, literals,
                                     smartPtrs, dynamicAllocation, locks, base>;
};

} // namespace ZvInit

template <>
ZVRESMGT_EXPORT void InInit<ZvInit::threads>::initPackage();
template <>
ZVRESMGT_EXPORT void InInit<ZvInit::threads>::cleanupPackage();
template <>
ZVRESMGT_EXPORT void InInit<ZvInit::resmgt>::initPackage();

extern template class ZVRESMGT_EXPORT InInit<ZvInit::containers>;
extern template class ZVRESMGT_EXPORT InInit<ZvInit::deviceManager>;
extern template class ZVRESMGT_EXPORT InInit<ZvInit::deviceProtocol>;
extern template class ZVRESMGT_EXPORT InInit<ZvInit::dynamicAllocation>;
extern template class ZVRESMGT_EXPORT InInit<ZvInit::literals>;
extern template class ZVRESMGT_EXPORT InInit<ZvInit::locks>;
extern template class ZVRESMGT_EXPORT InInit<ZvInit::memoryBuffers>;
extern template class InInit<ZvInit::resmgt>;
extern template class ZVRESMGT_EXPORT InInit<ZvInit::smartPtrs>;
extern template class ZVRESMGT_EXPORT InInit<ZvInit::syncEngine>;
extern template class ZVRESMGT_EXPORT InInit<ZvInit::threadExtensions>;
extern template class InInit<ZvInit::threads>;
extern template class ZVRESMGT_EXPORT InInit<ZvInit::xml>;

} // namespace Zv
