#include "resmgt/threads/mtThreadStatus.h"

#include "resmgt/threads/mtThreadMgrImp.private.h"
#include "resmgt/threads/mtThreadWindows.private.h"

namespace Zv {

Vector<MtThreadStatus> MtThreadStatus::readAll()
{
    Vector<MtThreadStatus> all;
    // The manager of the process is of this class: `MtThreadMgrWinNT`.
    auto const &manager = static_cast<MtThreadMgrImp const &>(MtThreadMgr::getInstance());
    manager.forEachThread([&](MtThread const &thread) {
        // The application may have a thread class of its own.
        if (auto const * const own = dynamic_cast<MtThreadWindows const *>(&thread))
            all.push_back(own->readStatus());
    });
    return all;
}

} // namespace Zv
