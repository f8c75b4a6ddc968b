// Build information of the libraries of a process (applications).
#pragma once

#include "zvbase/export.h"
#include "zvbase/objPtr.h"

#include <cstddef>
#include <ostream>

namespace Zv {

/// Describes the build of one library. A library derives a class and registers an object of it with
/// `DbgBuildInfoUtil::registerInfo`.
///
/// The returned texts are valid as long as the object.
///
/// **Threads**: `DbgBuildInfoUtil` calls it under a lock, on any thread.
class ZVBASE_EXPORT DbgBuildInfo
{
public:
    /// Returns the name of the product that the library belongs to.
    virtual char const *getProductName() const = 0;
    /// Returns the first number of the version.
    virtual int getMajorVersion() const = 0;
    /// Returns the second number of the version.
    virtual int getMinorVersion() const = 0;
    /// Returns the state of development, such as "beta".
    virtual char const *getStatusName() const = 0;
    /// Returns the name of the library. Records of the same name replace each other.
    virtual char const *getLibraryName() const = 0;
    /// Returns the tag of the build, in its long or its short form.
    virtual char const *getBuildTag(bool longForm) const = 0;
    /// Returns the date of the build.
    virtual char const *getBuildDate() const = 0;
    /// Returns the platform and the kind of the build.
    virtual char const *getBuildConfiguration() const = 0;
    /// Returns the person or machine that made the build.
    virtual char const *getBuilder() const = 0;
    /// Returns any further text.
    virtual char const *getExtraInformation() const = 0;
    virtual ~DbgBuildInfo();

protected:
    DbgBuildInfo();
    DbgBuildInfo(DbgBuildInfo const &);
    DbgBuildInfo &operator=(DbgBuildInfo const &);
};

/// The build information of all libraries of the process.
///
///     #include <iostream>
///
///     Zv::DbgBuildInfoUtil::list(std::cout);
///
/// **Threads**: thread-safe.
class ZVBASE_EXPORT DbgBuildInfoUtil
{
public:
    /// Keeps a record until the process ends. If there is a record of the same library already, the
    /// new one takes its place, and the old one is destroyed. Throws `RCEx::ExNullPtr` if `info` is
    /// null.
    static void registerInfo(ObjPtr<DbgBuildInfo> info);
    /// Returns the number of records.
    static std::size_t getNbInfos();
    /// Writes one paragraph for each record, in the order of registration.
    static void list(std::ostream &stream);

    DbgBuildInfoUtil() = delete;
};

} // namespace Zv
