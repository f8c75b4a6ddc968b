// The package of the whole library: its build information.

#include "resmgt/packages.h"
#include "zvbase/dbgBuildInfo.h"

namespace Zv {

namespace {

#if defined(_WIN32)
#define ZV_BUILD_PLATFORM "Windows"
#else
#define ZV_BUILD_PLATFORM "Linux"
#endif
#if defined(__OPTIMIZE__)
#define ZV_BUILD_KIND "optimised"
#else
#define ZV_BUILD_KIND "debug"
#endif

/// Build information of this library. The build system defines the version.
class LibraryBuildInfo : public DbgBuildInfo
{
public:
    char const *getProductName() const override { return "ZV media system"; }
    int getMajorVersion() const override { return ZV_VERSION_MAJOR; }
    int getMinorVersion() const override { return ZV_VERSION_MINOR; }
    char const *getStatusName() const override { return "pre-alpha"; }
    char const *getLibraryName() const override { return "libZVresmgt"; }
    char const *getBuildTag(bool longForm) const override
    {
        return longForm ? "ZV resource management, P. 187" : "P. 187";
    }
    char const *getBuildDate() const override { return "Feb 20 2006"; }
    char const *getBuildConfiguration() const override
    {
        return ZV_BUILD_PLATFORM " " ZV_BUILD_KIND;
    }
    char const *getBuilder() const override { return "local build"; }
    char const *getExtraInformation() const override { return "[Information not available]"; }
};

} // namespace

template <>
void InInit<ZvInit::resmgt>::initPackage()
{
    DbgBuildInfoUtil::registerInfo(ObjPtr<DbgBuildInfo>(new LibraryBuildInfo));
}

} // namespace Zv
