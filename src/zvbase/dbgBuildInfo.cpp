#include "zvbase/dbgBuildInfo.h"

#include "zvbase/baseLock.private.h"

#include <cstring>
#include <locale>
#include <sstream>
#include <vector>

namespace Zv {

namespace {

constinit BaseLock infosLock;
// Never freed, so that it can be used at any moment of the process.
std::vector<DbgBuildInfo *> *infos ZV_GUARDED_BY(infosLock) = nullptr;

void describe(std::ostream &stream, DbgBuildInfo const &info)
{
    stream << info.getLibraryName() << ' ' << info.getMajorVersion() << '.'
           << info.getMinorVersion() << ' ' << info.getStatusName() << ", " << info.getProductName()
           << '\n'
           << "    tag " << info.getBuildTag(true) << " (" << info.getBuildTag(false) << ")\n"
           << "    built " << info.getBuildDate() << " by " << info.getBuilder() << ", "
           << info.getBuildConfiguration() << '\n'
           << "    " << info.getExtraInformation() << '\n';
}

} // namespace

DbgBuildInfo::DbgBuildInfo() = default;
DbgBuildInfo::DbgBuildInfo(DbgBuildInfo const &) = default;
DbgBuildInfo &DbgBuildInfo::operator=(DbgBuildInfo const &) = default;
DbgBuildInfo::~DbgBuildInfo() = default;

void DbgBuildInfoUtil::registerInfo(ObjPtr<DbgBuildInfo> info)
{
    DbgBuildInfo const &added = *info;
    ObjPtr<DbgBuildInfo> former;
    BaseGuard const guard(infosLock);
    if (!infos)
        infos = new std::vector<DbgBuildInfo *>;
    for (DbgBuildInfo *&known : *infos) {
        if (std::strcmp(known->getLibraryName(), added.getLibraryName()) == 0) {
            former.reset(known);
            known = info.release();
            return;
        }
    }
    infos->push_back(info.get());
    static_cast<void>(info.release());
}

std::size_t DbgBuildInfoUtil::getNbInfos()
{
    BaseGuard const guard(infosLock);
    return infos ? infos->size() : 0;
}

void DbgBuildInfoUtil::list(std::ostream &stream)
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    {
        BaseGuard const guard(infosLock);
        if (!infos)
            return;
        for (DbgBuildInfo const *info : *infos)
            describe(text, *info);
    }
    // Outside of the lock, because the stream is the caller's code and may take any time.
    stream << text.str();
}

} // namespace Zv
