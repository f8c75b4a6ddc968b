#include "resmgt/deviceManager/sequence/seqANOFactory.h"

#include "resmgt/deviceManager/devMgrFailure.private.h"

#include <optional>

namespace Zv {

namespace {

class SeqANO final : public DevClonableANO, public DevMgrFailureSource
{
public:
    SeqANO(LiString const &deviceName, unsigned int event, RCShdPtr<DevSeqTreeLink> const &tree)
        : _deviceName(deviceName), _event(event), _tree(tree)
    {}

    void performExecute() override
    {
        _tree->processEvent(_deviceName, static_cast<std::int32_t>(_event), _failure);
    }
    DevMgrFailure getFailure() const override
    {
        if (_failure)
            return *_failure;
        DevMgrFailure failure;
        failure.device = _deviceName;
        return failure;
    }
    ObjPtrRet<DevClonableANO> clone() const override
    {
        return makeObj<SeqANO>(_deviceName, _event, _tree);
    }

private:
    LiString _deviceName;
    unsigned int _event;
    RCShdPtr<DevSeqTreeLink> _tree;
    std::optional<DevMgrFailure> _failure;
};

} // namespace

SeqANOFactory::SeqANOFactory(RCShdPtr<DevSeqTree> tree) : _tree(tree) {}

ObjPtrRet<DevClonableANO> SeqANOFactory::create(LiString const &name, unsigned int event) const
{
    return makeObj<SeqANO>(name, event, _tree->getLink());
}

} // namespace Zv
