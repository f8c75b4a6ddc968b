// How the reader of a property learns that its value is there.
#pragma once

#include "resmgt/deviceProtocol/devACO.h"
#include "resmgt/locks/lkUnnamedSema.h"

namespace Zv {

class DevMDStdPropertyObserver;

/// Posts the semaphore on which the reader of a property waits: when the request has been executed, and also when it
/// is destroyed without having been executed, because the device closes. A reader waits in either case and once only.
class ZVRESMGT_EXPORT DevMDStdPropertyGetACO : public DevACO
{
public:
    explicit DevMDStdPropertyGetACO(LkUnnamedSema &done);
    /// Sets `ok` to false, before it posts, when it is destroyed unrun. Both must live until the semaphore is posted.
    DevMDStdPropertyGetACO(LkUnnamedSema &done, bool &ok);
    /// The same. Before it posts, it tells the observer that the property was read, with or without a value.
    DevMDStdPropertyGetACO(LkUnnamedSema &done, bool &ok, DevMDStdPropertyObserver &observer);
    DevMDStdPropertyGetACO(DevMDStdPropertyGetACO const &) = delete;
    DevMDStdPropertyGetACO &operator=(DevMDStdPropertyGetACO const &) = delete;
    ~DevMDStdPropertyGetACO() override;

    void performExecute() override;

private:
    void post();

    LkUnnamedSema &_done;
    bool *_ok = nullptr;
    DevMDStdPropertyObserver *_observer = nullptr;
    bool _posted = false;
};

} // namespace Zv
