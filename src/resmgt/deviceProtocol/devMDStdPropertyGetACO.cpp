#include "resmgt/deviceProtocol/devMDStdPropertyGetACO.h"

namespace Zv {

DevMDStdPropertyGetACO::DevMDStdPropertyGetACO(LkUnnamedSema &done) : _done(done) {}

DevMDStdPropertyGetACO::DevMDStdPropertyGetACO(LkUnnamedSema &done, bool &ok)
    : _done(done), _ok(&ok)
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
    _posted = true;
    _done.post();
}

} // namespace Zv
