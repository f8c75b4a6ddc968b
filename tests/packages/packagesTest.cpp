#include "resmgt/packages.h"

#include "packages/registered.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

using Names = std::vector<std::string>;

Names dependenciesOf(InPackageInit const &package)
{
    Names found;
    for (std::type_info const *type : package.getDependencies())
        found.push_back(getRegistered(*type).getName());
    return found;
}

template <class Tag>
Names dependenciesOf()
{
    return dependenciesOf(getRegistered<Tag>());
}

TEST(Packages, NameTheirDependenciesInOrder)
{
    using namespace ZvInit;
    EXPECT_EQ(dependenciesOf<containers>(), (Names{"smartPtrs", "base"}));
    EXPECT_EQ(dependenciesOf<deviceManager>(),
              (Names{"deviceProtocol", "threadExtensions", "threads", "containers", "literals",
                     "smartPtrs", "locks", "base"}));
    EXPECT_EQ(dependenciesOf<deviceProtocol>(), (Names{"threadExtensions", "threads", "containers",
                                                       "literals", "smartPtrs", "locks", "base"}));
    EXPECT_EQ(dependenciesOf<dynamicAllocation>(), (Names{"base"}));
    EXPECT_EQ(dependenciesOf<literals>(), (Names{"smartPtrs", "base"}));
    EXPECT_EQ(dependenciesOf<locks>(), (Names{"base"}));
    EXPECT_EQ(dependenciesOf<memoryBuffers>(),
              (Names{"literals", "smartPtrs", "dynamicAllocation", "locks", "base"}));
    EXPECT_EQ(dependenciesOf<resmgt>(),
              (Names{"memoryBuffers", "syncEngine", "deviceManager", "deviceProtocol",
                     "threadExtensions", "threads", "xml", "containers", "literals", "smartPtrs",
                     "dynamicAllocation", "locks", "base"}));
    EXPECT_EQ(dependenciesOf<smartPtrs>(), (Names{"locks", "base"}));
    EXPECT_EQ(dependenciesOf<syncEngine>(),
              (Names{"threads", "literals", "locks", "smartPtrs", "base"}));
    EXPECT_EQ(dependenciesOf<threadExtensions>(),
              (Names{"threads", "literals", "smartPtrs", "locks", "base"}));
    EXPECT_EQ(dependenciesOf<threads>(), (Names{"literals", "smartPtrs", "locks", "base"}));
    EXPECT_EQ(dependenciesOf<xml>(),
              (Names{"containers", "literals", "smartPtrs", "locks", "base"}));
}

TEST(Packages, OfTheListAreAllThatAreRegistered)
{
    std::size_t nbListed = 1; // the base
#define ZV_CHECK_PACKAGE(Name, ...)                                                                \
    EXPECT_STREQ(getRegistered<ZvInit::Name>().getName(), #Name);                                  \
    ++nbListed;
    ZV_RESMGT_PACKAGES(ZV_CHECK_PACKAGE, ZV_CHECK_PACKAGE)
#undef ZV_CHECK_PACKAGE
    EXPECT_EQ(InPackageRun::getRegistered().size(), nbListed);
}

TEST(Packages, AreUpWhileTheTestsRun)
{
    EXPECT_TRUE(InInit<ZvInit::base>::isInitialized());
#define ZV_CHECK_PACKAGE(Name, ...) EXPECT_TRUE(InInit<ZvInit::Name>::isInitialized()) << #Name;
    ZV_RESMGT_PACKAGES(ZV_CHECK_PACKAGE, ZV_CHECK_PACKAGE)
#undef ZV_CHECK_PACKAGE
}

} // namespace
} // namespace ZvTest
