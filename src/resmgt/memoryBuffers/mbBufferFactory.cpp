#include "resmgt/memoryBuffers/mbBufferFactory.h"

#include "resmgt/memoryBuffers/mbBuffer.h"
#include "zvbase/failures.h"

#include <cstring>

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

// ---- MbDualBufferFactory

namespace {

class DualProtocol : public MbProtocol
{
public:
    DualProtocol(MbBuffer const &buf1, int offset1, int size1, MbBuffer const &buf2, int offset2,
                 int size2)
        : _buf1(buf1),
          _offset1(offset1),
          _size1(size1),
          _buf2(buf2),
          _offset2(offset2),
          _size2(size2)
    {}
    ~DualProtocol() noexcept(false) override;

    void reload(void *memory, std::uint64_t) override
    {
        copy(memory, _buf1, _offset1, _size1);
        copy(static_cast<char *>(memory) + _size1, _buf2, _offset2, _size2);
    }

private:
    static void copy(void *to, MbBuffer const &buffer, int offset, int size)
    {
        MbBufferRdGuardImp const guard(buffer);
        auto const slice = guard.getData().subspan(static_cast<std::size_t>(offset),
                                                   static_cast<std::size_t>(size));
        std::memcpy(to, slice.data(), slice.size());
    }

    MbBuffer _buf1;
    int _offset1;
    int _size1;
    MbBuffer _buf2;
    int _offset2;
    int _size2;
};

DualProtocol::~DualProtocol() noexcept(false) = default;

} // namespace

MbDualBufferFactory::MbDualBufferFactory(MbState const *initialState,
                                         RCShdPtr<MbManager> const &manager)
    : _initialState(initialState), _manager(manager)
{}

MbDualBufferFactory::MbDualBufferFactory(MbDualBufferFactory const &) = default;
MbDualBufferFactory &MbDualBufferFactory::operator=(MbDualBufferFactory const &) = default;
MbDualBufferFactory::~MbDualBufferFactory() noexcept(false) = default;

MbBuffer MbDualBufferFactory::create(MbBuffer const &buf1, int firstOffset, int firstSize,
                                     MbBuffer const &buf2, int secondOffset, int secondSize)
{
    // A sum of two numbers of 32 bits cannot overflow in 64 bits.
    std::int64_t const offset1 = firstOffset;
    std::int64_t const size1 = firstSize;
    std::int64_t const offset2 = secondOffset;
    std::int64_t const size2 = secondSize;
    ZV_ASSERT(offset1 >= 0);
    ZV_ASSERT(offset2 >= 0);
    ZV_ASSERT(size1 > 0);
    ZV_ASSERT(size2 > 0);
    ZV_ASSERT(( offset1 + size1 ) <= buf1.getSize());
    ZV_ASSERT(( offset2 + size2 ) <= buf2.getSize());
    LiString const name = LiString(buf1.getName()) + " - " + buf2.getName();
    return MbBuffer(MbBufferImpFactory::create(
        name, _initialState, _manager,
        makeObj<DualProtocol>(buf1, firstOffset, firstSize, buf2, secondOffset, secondSize),
        static_cast<int>(size1 + size2), MbAlignment(0, 0, 0)));
}

} // namespace Zv
