#include "resmgt/packages.private.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Zv {
namespace {

using Names = std::vector<std::string>;

std::string nameOf(std::type_info const &type)
{
    using namespace PackageStatics;
    InPackageInit const * const all[] = {
        &*containers, &*deviceManager, &*deviceProtocol,   &*dynamicAllocation,
        &*literals,   &*locks,         &*memoryBuffers,    &*resmgt,
        &*smartPtrs,  &*syncEngine,    &*threadExtensions, &*threads,
        &*xml};
    for (InPackageInit const *package : all)
        if (typeid(*package) == type)
            return package->getName();
    return InInit<ZvInit::base>::getType() == type ? "base" : "unknown";
}

Names dependenciesOf(InPackageInit const &package)
{
    Names found;
    for (std::type_info const *type : package.getDependencies())
        found.push_back(nameOf(*type));
    return found;
}

TEST(Packages, NameTheirDependenciesInOrder)
{
    using namespace PackageStatics;
    EXPECT_EQ((Names{"smartPtrs", "base"}), dependenciesOf(*containers));
    EXPECT_EQ((Names{"deviceProtocol", "threadExtensions", "threads", "containers", "literals",
                     "smartPtrs", "locks", "base"}),
              dependenciesOf(*deviceManager));
    EXPECT_EQ((Names{"threadExtensions", "threads", "containers", "literals", "smartPtrs", "locks",
                     "base"}),
              dependenciesOf(*deviceProtocol));
    EXPECT_EQ((Names{"base"}), dependenciesOf(*dynamicAllocation));
    EXPECT_EQ((Names{"smartPtrs", "base"}), dependenciesOf(*literals));
    EXPECT_EQ((Names{"base"}), dependenciesOf(*locks));
    EXPECT_EQ((Names{"literals", "smartPtrs", "dynamicAllocation", "locks", "base"}),
              dependenciesOf(*memoryBuffers));
    EXPECT_EQ((Names{"memoryBuffers", "syncEngine", "deviceManager", "deviceProtocol",
                     "threadExtensions", "threads", "xml", "containers", "literals", "smartPtrs",
                     "dynamicAllocation", "locks", "base"}),
              dependenciesOf(*resmgt));
    EXPECT_EQ((Names{"locks", "base"}), dependenciesOf(*smartPtrs));
    EXPECT_EQ((Names{"threads", "literals", "locks", "smartPtrs", "base"}),
              dependenciesOf(*syncEngine));
    EXPECT_EQ((Names{"threads", "literals", "smartPtrs", "locks", "base"}),
              dependenciesOf(*threadExtensions));
    EXPECT_EQ((Names{"literals", "smartPtrs", "locks", "base"}), dependenciesOf(*threads));
    EXPECT_EQ((Names{"containers", "literals", "smartPtrs", "locks", "base"}),
              dependenciesOf(*xml));
}

TEST(Packages, AreUpWhileTheTestsRun)
{
    EXPECT_TRUE(InInit<ZvInit::base>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::containers>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::deviceManager>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::deviceProtocol>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::dynamicAllocation>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::literals>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::locks>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::memoryBuffers>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::resmgt>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::smartPtrs>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::syncEngine>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::threadExtensions>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::threads>::isInitialized());
    EXPECT_TRUE(InInit<ZvInit::xml>::isInitialized());
}

} // namespace
} // namespace Zv
