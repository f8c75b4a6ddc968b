#include "resmgt/memoryBuffers/mbBufferFactory.h"

namespace Zv {

MbBufferFactory::MbBufferFactory() = default;
MbBufferFactory::MbBufferFactory(MbBufferFactory const &) = default;
MbBufferFactory &MbBufferFactory::operator=(MbBufferFactory const &) = default;
MbBufferFactory::~MbBufferFactory() noexcept(false) = default;

MbBufferSimpleFactory::MbBufferSimpleFactory(MbState const *initialState,
                                             RCShdPtr<MbManager> const &manager)
    : _initialState(initialState), _manager(manager)
{}

MbBufferSimpleFactory::MbBufferSimpleFactory(MbBufferSimpleFactory const &) = default;
MbBufferSimpleFactory &MbBufferSimpleFactory::operator=(MbBufferSimpleFactory const &) = default;
MbBufferSimpleFactory::~MbBufferSimpleFactory() noexcept(false) = default;

MbBuffer MbBufferSimpleFactory::create(LiString const &name, ObjPtr<MbProtocol> protocol, int size,
                                       MbAlignment const &alignment)
{
    return MbBuffer(
        MbBufferImpFactory::create(name, _initialState, _manager, protocol, size, alignment));
}

MbBuffer MbBufferSimpleFactory::create(LiString const &name, int size, MbAlignment const &alignment)
{
    return create(name, makeObj<MbProtocol>(), size, alignment);
}

MbBuffer MbBufferSimpleFactory::create(LiString const &name, int size)
{
    return create(name, size, MbAlignment(127, 0, 0));
}

RCShdEngPtr<MbBufferImp> MbBufferImpFactory::create(LiString const &name,
                                                    MbState const *initialState,
                                                    RCShdPtr<MbManager> const &manager,
                                                    ObjPtr<MbProtocol> protocol, int size,
                                                    MbAlignment const &alignment)
{
    return RCShdEngPtr<MbBufferImp>(
        new MbBufferImp(name, initialState, manager, protocol, size, alignment));
}

} // namespace Zv
