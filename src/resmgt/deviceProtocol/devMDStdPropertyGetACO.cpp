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
    post();
}

void DevMDStdPropertyGetACO::performExecute()
{
    _posted = true;
    post();
}

// The reader has asked, whatever the answer: the next change is news to it. It goes on when it is posted.
void DevMDStdPropertyGetACO::post()
{
    struct Post
    {
        LkUnnamedSema &done;
        ~Post() noexcept(false) { done.post(); }
    };
    Post const post{_done};
    if (_observer)
        _observer->setRead();
}

} // namespace Zv
