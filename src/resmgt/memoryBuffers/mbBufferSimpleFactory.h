// The factory of plain buffers.
#pragma once

#include "resmgt/memoryBuffers/mbBufferFactory.h"
#include "resmgt/memoryBuffers/mbManager.h"

namespace Zv {

class MbState;

/// Makes the buffers of one machine and one manager. A value: copies share the manager.
class ZVRESMGT_EXPORT MbBufferSimpleFactory : public MbBufferFactory
{
public:
    /// `initialState` is `MbStateMachine::getInstance(trace).getInitialState()`.
    MbBufferSimpleFactory(MbState const *initialState, RCShdPtr<MbManager> const &manager);
    MbBufferSimpleFactory(MbBufferSimpleFactory const &);
    MbBufferSimpleFactory &operator=(MbBufferSimpleFactory const &);
    ~MbBufferSimpleFactory() noexcept(false) override;

    MbBuffer create(LiString const &name, ObjPtr<MbProtocol> protocol, int size,
                    MbAlignment const &alignment) override;
    MbBuffer create(LiString const &name, int size, MbAlignment const &alignment) override;
    MbBuffer create(LiString const &name, int size) override;

private:
    MbState const *_initialState;
    RCShdPtr<MbManager> _manager;
};

} // namespace Zv
