// Which builds of which libraries a process runs.
#pragma once

#include "zvbase/export.h"
#include "zvbase/objPtr.h"

#include <cstddef>
#include <ostream>

namespace Zv {

/// What a library says of its own build. All texts live as long as the object.
class ZVBASE_EXPORT DbgBuildInfo
{
public:
    virtual char const *getProductName() const = 0;
    virtual int getMajorVersion() const = 0;
    virtual int getMinorVersion() const = 0;
    virtual char const *getStatusName() const = 0;
    virtual char const *getLibraryName() const = 0;
    virtual char const *getBuildTag(bool longForm) const = 0;
    virtual char const *getBuildDate() const = 0;
    virtual char const *getBuildConfiguration() const = 0;
    virtual char const *getBuilder() const = 0;
    virtual char const *getExtraInformation() const = 0;
    virtual ~DbgBuildInfo();

protected:
    DbgBuildInfo();
    DbgBuildInfo(DbgBuildInfo const &);
    DbgBuildInfo &operator=(DbgBuildInfo const &);
};

/// The records of the process. Any thread.
class ZVBASE_EXPORT DbgBuildInfoUtil
{
public:
    /// Keeps the record for the rest of the process. If a record of the same library is listed already, the new record
    /// takes its place and the old one is destroyed. Throws `RCEx::ExNullPtr` if the owner is null.
    static void registerInfo(ObjPtr<DbgBuildInfo> info);
    static std::size_t getNbInfos();
    /// One paragraph for each record, in the order of registration.
    static void list(std::ostream &);

    DbgBuildInfoUtil() = delete;
};

} // namespace Zv
