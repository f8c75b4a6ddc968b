#include "resmgt/deviceProtocol/devANO.h"

namespace Zv {

DevAEO::~DevAEO() noexcept(false) = default;

DevACO::~DevACO() = default;

namespace {

class NoopACO : public DevACO
{
public:
    void performExecute() override {}
};

} // namespace

DevANO::DevANO() = default;

DevANO::~DevANO() = default;

void DevANO::notify()
{
    if (_aco) {
        _aco->performExecute();
        _aco = nullptr;
    }
}

void DevANO::setACO(ObjPtr<DevACO> aco)
{
    _aco = aco;
}

ObjPtrRet<DevACO> DevANO::releaseACO()
{
    if (!_aco)
        return makeObj<NoopACO>();
    return _aco;
}

DevClonableANO::~DevClonableANO() = default;

} // namespace Zv
