// Who makes buffers.
#pragma once

#include "resmgt/memoryBuffers/mbBuffer.h"
#include "resmgt/memoryBuffers/mbProtocol.h"

namespace Zv {

/// Makes buffers of one kind. A new buffer is Freed: it has no memory until it is locked or prefetched. Sizes are bytes,
/// not negative; a name is copied. Any thread.
///
/// **Throws** `RCEx::ExNullPtr` if the factory has no initial state. A buffer without a protocol or a manager throws it
/// when it is first locked or prefetched.
class ZVRESMGT_EXPORT MbBufferFactory
{
public:
    virtual ~MbBufferFactory() noexcept(false);

    /// A buffer whose contents are the protocol's.
    virtual MbBuffer create(LiString const &name, ObjPtr<MbProtocol> protocol, int size,
                            MbAlignment const &alignment) = 0;
    /// A buffer that keeps its contents only while it is loaded.
    virtual MbBuffer create(LiString const &name, int size, MbAlignment const &alignment) = 0;
    /// The same, aligned to 128 bytes.
    virtual MbBuffer create(LiString const &name, int size) = 0;

protected:
    MbBufferFactory();
    MbBufferFactory(MbBufferFactory const &);
    MbBufferFactory &operator=(MbBufferFactory const &);
};

} // namespace Zv
