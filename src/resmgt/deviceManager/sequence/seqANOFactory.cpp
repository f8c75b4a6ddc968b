#include "resmgt/deviceManager/sequence/seqANOFactory.h"

namespace Zv {

namespace {

class SeqANO final : public DevClonableANO
{
public:
    SeqANO(LiString const &deviceName, unsigned int event, RCShdPtr<DevSeqTreeLink> const &tree)
        : _deviceName(deviceName), _event(event), _tree(tree)
    {}

    void performExecute() override
    {
        _tree->processEvent(_deviceName, static_cast<std::int32_t>(_event));
    }
    ObjPtrRet<DevClonableANO> clone() const override
    {
        return makeObj<SeqANO>(_deviceName, _event, _tree);
    }

private:
    LiString _deviceName;
    unsigned int _event;
    RCShdPtr<DevSeqTreeLink> _tree;
};

} // namespace

SeqANOFactory::SeqANOFactory(RCShdPtr<DevSeqTree> tree) : _tree(tree) {}

ObjPtrRet<DevClonableANO> SeqANOFactory::create(LiString const &name, unsigned int event) const
{
    return makeObj<SeqANO>(name, event, _tree->getLink());
}

} // namespace Zv
