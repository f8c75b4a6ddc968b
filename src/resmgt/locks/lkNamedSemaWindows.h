// The platform forms of LkNamedSema and LkUnnamedSema.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkSemaTypes.h"
#include "zvbase/platform/types.h"

namespace Zv {

/// A kernel semaphore, under a system name or none. See LkNamedSema.
class ZVRESMGT_EXPORT LkNamedSemaWindows
{
public:
    LkNamedSemaWindows(char const *systemName, unsigned count, LkSemaTypes::CreateFlag flag,
                       char const *label);
    LkNamedSemaWindows(LkNamedSemaWindows const &) = delete;
    LkNamedSemaWindows &operator=(LkNamedSemaWindows const &) = delete;
    ~LkNamedSemaWindows() noexcept(false);

    void wait();
    [[nodiscard]] bool tryWait();
    void post();
    int getErrno() const noexcept { return _errno; }
    char const *getName() const noexcept { return _name; }

private:
    char const *_name;
    ZvPlatform::Handle _sema;
    int _errno;
};

/// A kernel semaphore of its own. See LkUnnamedSema.
class ZVRESMGT_EXPORT LkUnnamedSemaWindows : public LkNamedSemaWindows
{
public:
    LkUnnamedSemaWindows(char const *label, unsigned count, LkSemaTypes::Shared);
};

} // namespace Zv
