#include "resmgt/deviceProtocol/devANO.h"

namespace Zv {

DevAEO::~DevAEO() noexcept(false) = default;

DevACO::~DevACO() = default;

DevFailableACO::~DevFailableACO() = default;

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
    _flow.end();
}

bool DevANO::notifyFailure(std::exception_ptr const &failure)
{
    auto * const failable = dynamic_cast<DevFailableACO *>(_aco.get());
    if (!failable)
        return false;
    failable->performFail(failure);
    _aco = nullptr;
    return true;
}

void DevANO::setACO(ObjPtr<DevACO> aco)
{
    _aco = std::move(aco);
}

ObjPtrRet<DevACO> DevANO::releaseACO()
{
    if (!_aco)
        return makeObj<NoopACO>();
    return _aco;
}

DevClonableANO::~DevClonableANO() = default;

DevMDStdANO::~DevMDStdANO() = default;

} // namespace Zv
