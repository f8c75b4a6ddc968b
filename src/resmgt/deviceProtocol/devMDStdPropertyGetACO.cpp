#include "resmgt/deviceProtocol/devMDStdPropertyGetACO.h"

#include "resmgt/deviceProtocol/devMDStdPropertyObserver.h"

namespace Zv {

DevMDStdPropertyGetACO::DevMDStdPropertyGetACO(LkUnnamedSema &done) : _done(done) {}

DevMDStdPropertyGetACO::DevMDStdPropertyGetACO(LkUnnamedSema &done, bool &ok)
    : _done(done), _ok(&ok)
{}

DevMDStdPropertyGetACO::DevMDStdPropertyGetACO(LkUnnamedSema &done, bool &ok,
                                               DevMDStdPropertyObserver &observer)
    : _done(done), _ok(&ok), _observer(&observer)
{}

DevMDStdPropertyGetACO::~DevMDStdPropertyGetACO()
{
    if (_posted)
        return;
    if (_ok)
        *_ok = false;
    _done.post();
}

void DevMDStdPropertyGetACO::performExecute()
{
    if (_observer && *_ok)
        _observer->setRead();
    _posted = true;
    _done.post();
}

} // namespace Zv
