// Factories of memory buffers, and of buffers that show slices of two others as one (applications).
#pragma once

#include "resmgt/memoryBuffers/mbBuffer.h"
#include "resmgt/memoryBuffers/mbManager.h"
#include "resmgt/memoryBuffers/mbProtocol.h"

namespace Zv {

/// Makes buffers of one kind. A new buffer has no memory until it is locked or prefetched.
///
///     MbBuffer createFrame(MbBufferFactory &factory, int number)
///     {
///         return factory.create(LiString("frame"), 4096, MbAlignment(4095, 0, 0));
///     }
///
/// **Threads**: thread-safe.
///
/// **Throws** `RCEx::ExNullPtr` if the factory has no initial state. A buffer without a protocol or
/// a manager throws it when it is first locked or prefetched. If the size is negative, an assertion
/// fails.
///
/// **Owns**: a buffer owns its protocol, shares its manager and copies its name.
///
/// Sizes are in bytes.
class ZVRESMGT_EXPORT MbBufferFactory
{
public:
    virtual ~MbBufferFactory() noexcept(false);

    /// Makes a buffer whose contents belong to the protocol.
    [[nodiscard]] virtual MbBuffer create(LiString const &name, ObjPtr<MbProtocol> protocol,
                                          int size, MbAlignment const &alignment) = 0;
    /// Makes a buffer that keeps its contents only while it is loaded.
    [[nodiscard]] virtual MbBuffer create(LiString const &name, int size,
                                          MbAlignment const &alignment) = 0;
    /// Makes a buffer that keeps its contents only while it is loaded, and is aligned to 128 bytes.
    [[nodiscard]] virtual MbBuffer create(LiString const &name, int size) = 0;

protected:
    MbBufferFactory();
    MbBufferFactory(MbBufferFactory const &);
    MbBufferFactory &operator=(MbBufferFactory const &);
};

/// Makes the buffers of one state machine and one manager. A value: copies share the manager.
///
///     RCShdPtr<MbManager> const manager(
///         new MbHeapManager("clips", 1 << 20, ObjPtr<MbUnloadStrategy>(new MbUnloadLRU(0))));
///     MbState const * const initial = MbStateMachine::getInstance(false).getInitialState();
///     MbBufferSimpleFactory factory(initial, manager);
///     MbBuffer const clip = factory.create("clip", 4096);
class ZVRESMGT_EXPORT MbBufferSimpleFactory : public MbBufferFactory
{
public:
    /// `initialState` must be `MbStateMachine::getInstance(trace).getInitialState()`.
    MbBufferSimpleFactory(MbState const *initialState, RCShdPtr<MbManager> const &manager);
    MbBufferSimpleFactory(MbBufferSimpleFactory const &);
    MbBufferSimpleFactory &operator=(MbBufferSimpleFactory const &);
    ~MbBufferSimpleFactory() noexcept(false) override;

    [[nodiscard]] MbBuffer create(LiString const &name, ObjPtr<MbProtocol> protocol, int size,
                                  MbAlignment const &alignment) override;
    [[nodiscard]] MbBuffer create(LiString const &name, int size,
                                  MbAlignment const &alignment) override;
    [[nodiscard]] MbBuffer create(LiString const &name, int size) override;

private:
    MbState const *_initialState;
    RCShdPtr<MbManager> _manager;
};

/// Makes the object behind a handle. A class that derives from `MbBufferFactory` calls it.
class ZVRESMGT_EXPORT MbBufferImpFactory
{
public:
    /// Throws `RCEx::ExNullPtr` if `initialState` is null. If `size` is negative, an assertion
    /// fails.
    [[nodiscard]] static RCShdEngPtr<MbBufferImp>
    create(LiString const &name, MbState const *initialState, RCShdPtr<MbManager> const &manager,
           ObjPtr<MbProtocol> protocol, int size, MbAlignment const &alignment);

    MbBufferImpFactory() = delete;
};

/// Makes buffers whose contents are a slice of one buffer and, behind it, a slice of another one.
/// An example is a frame that crosses the end of a ring, as a view in one piece. When the view is
/// loaded, it locks one source after the other for reading, and copies. The sources are loaded if
/// need be. Nothing is written back to them.
///
///     MbBuffer joinHalves(MbDualBufferFactory &views, MbBuffer const &a, MbBuffer const &b)
///     {
///         int const half = a.getSize() / 2;
///         return views.create(a, half, half, b, 0, b.getSize() / 2);
///     }
///
/// If the view and a source have the same manager, its budget must have room for both at once.
/// Otherwise loading the view waits without end, because the view does not give up its own memory
/// for its source. A thread that holds a write guard on a source and loads the view deadlocks.
/// Neither is detected.
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT MbDualBufferFactory
{
public:
    /// `initialState` must be `MbStateMachine::getInstance(trace).getInitialState()`.
    MbDualBufferFactory(MbState const *initialState, RCShdPtr<MbManager> const &manager);
    MbDualBufferFactory(MbDualBufferFactory const &);
    MbDualBufferFactory &operator=(MbDualBufferFactory const &);
    virtual ~MbDualBufferFactory() noexcept(false);

    /// Returns a view of `size1` bytes of `buf1` from `offset1` on, and of `size2` bytes of `buf2`
    /// from `offset2` on. The name of the view is made of both names, as "a - b". The view keeps
    /// its sources alive, and has no alignment. An assertion fails if a slice is empty or not
    /// within its buffer, or if the sum of the sizes is no `int`.
    [[nodiscard]] virtual MbBuffer create(MbBuffer const &buf1, int offset1, int size1,
                                          MbBuffer const &buf2, int offset2, int size2);

private:
    MbState const *_initialState;
    RCShdPtr<MbManager> _manager;
};

} // namespace Zv
