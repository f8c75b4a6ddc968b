#include "recording.h"

#include "testing/failures.h"
#include "zvbase/failures.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

namespace ZvTest {
namespace {

/// Loads "abcdefgh…" from a letter on, and counts its calls.
class Letters : public MbProtocol
{
public:
    Letters(char first, int &nbLoads) : _first(first), _nbLoads(nbLoads) {}
    void reload(void *memory, std::uint64_t size) override
    {
        ++_nbLoads;
        for (std::uint64_t i = 0; i < size; ++i)
            static_cast<char *>(memory)[i] = static_cast<char>(_first + static_cast<char>(i));
    }

private:
    char _first;
    int &_nbLoads;
};

class DualBuffer : public testing::Test
{
protected:
    ~DualBuffer() noexcept override {}

    static std::string contentsOf(MbBuffer const &buffer)
    {
        MbBufferRdGuardImp const guard(buffer);
        return {static_cast<char const *>(guard.getMemory()),
                static_cast<std::size_t>(buffer.getSize())};
    }
    std::string assertionOf(int offset1, int size1, int offset2, int size2)
    {
        return failedAssertion([&] {
            static_cast<void>(factory.create(first, offset1, size1, second, offset2, size2));
        });
    }

    int nbFirst = 0;
    int nbSecond = 0;
    RCShdPtr<MbManager> sources{new MbHeapManager("sources", 10, makeObj<MbUnloadLRU>(0))};
    RCShdPtr<MbManager> views{new MbHeapManager("views", 100, makeObj<MbUnloadLRU>(0))};
    MbBufferSimpleFactory plain{initialState(), sources};
    MbDualBufferFactory factory{initialState(), views};
    MbBuffer first =
        plain.create("first", makeObj<Letters>('a', nbFirst), 10, MbAlignment(0, 0, 0));
    MbBuffer second =
        plain.create("second", makeObj<Letters>('A', nbSecond), 10, MbAlignment(0, 0, 0));
};

TEST_F(DualBuffer, GluesTwoSlices)
{
    MbBuffer const dual = factory.create(first, 7, 3, second, 0, 4);
    EXPECT_STREQ(dual.getName(), "first - second");
    EXPECT_EQ(dual.getSize(), 7);
    EXPECT_EQ(dual.getAlignment().getAlignmentMask(), 0u);
    EXPECT_EQ(dual.getAlignment().getOffsetMask(), 0u);
    EXPECT_EQ(dual.getAlignment().getOffsetPattern(), 0u);
    EXPECT_FALSE(dual.isLoaded());
    EXPECT_EQ(contentsOf(dual), "hijABCD");
}

/// The budget has room for one of the sources, so that each is evicted for the other.
TEST_F(DualBuffer, ReadsItsSourcesBackOneAfterTheOther)
{
    MbBuffer dual = factory.create(first, 0, 10, second, 0, 10);
    EXPECT_EQ(contentsOf(dual), "abcdefghijABCDEFGHIJ");
    EXPECT_EQ(stateOf(first), "Unloaded");
    EXPECT_EQ(stateOf(second), "Loaded");
    dual.free();
    EXPECT_EQ(contentsOf(dual), "abcdefghijABCDEFGHIJ");
    EXPECT_EQ(nbFirst, 2);
    EXPECT_EQ(nbSecond, 2);
    // The sources can be used as before.
    EXPECT_EQ(contentsOf(first), "abcdefghij");
    EXPECT_EQ(nbFirst, 3);
    EXPECT_EQ(stateOf(second), "Unloaded");
    EXPECT_EQ(contentsOf(second), "ABCDEFGHIJ");
}

TEST_F(DualBuffer, IsReadFromItsSourcesAgainAfterItWasUnloaded)
{
    MbBuffer const dual = factory.create(first, 1, 2, second, 3, 4);
    EXPECT_EQ(contentsOf(dual), "bcDEFG");
    {
        MbBufferWrGuardImp const guard(dual);
        std::memset(guard.getMemory(), 'x', 6);
    }
    dual.getImp()->receive(MbEvent::UNLOAD);
    EXPECT_EQ(stateOf(dual), "Unloaded");
    // Nothing has been written back.
    EXPECT_EQ(contentsOf(dual), "bcDEFG");
    EXPECT_EQ(contentsOf(first), "abcdefghij");
}

TEST_F(DualBuffer, KeepsItsSourcesAlive)
{
    MbBuffer const dual = factory.create(first, 1, 1, second, 2, 1);
    EXPECT_FALSE(first.isUniqueOwner());
    first = MbBuffer();
    second = MbBuffer();
    EXPECT_EQ(contentsOf(dual), "bC");
}

TEST_F(DualBuffer, MayHaveOneSourceTwiceAndDualBuffersAsSources)
{
    MbBuffer const turned = factory.create(first, 5, 5, first, 0, 5);
    EXPECT_EQ(contentsOf(turned), "fghijabcde");
    MbBuffer const nested = factory.create(turned, 4, 2, second, 0, 1);
    EXPECT_EQ(contentsOf(nested), "jaA");
}

TEST_F(DualBuffer, IsLoadedAheadLikeAnyOther)
{
    MbBuffer dual = factory.create(first, 0, 1, second, 0, 1);
    dual.prefetch();
    EXPECT_EQ(stateOf(dual), "Loaded");
    EXPECT_EQ(contentsOf(dual), "aA");
    EXPECT_EQ(nbFirst, 1);
}

TEST_F(DualBuffer, CannotBeLargerThanASizeCanSay)
{
    MbBuffer const large = plain.create("large", INT_MAX, MbAlignment(0, 0, 0));
    for (int size : {1, INT_MAX}) {
        EXPECT_EQ(failedAssertion([&] {
                      static_cast<void>(factory.create(large, 0, INT_MAX, large, 0, size));
                  }),
                  "size >= 0");
    }
    EXPECT_EQ(factory.create(large, 0, INT_MAX - 1, large, 0, 1).getSize(), INT_MAX);
}

TEST_F(DualBuffer, OfACopiedFactoryIsOfTheSameMachineAndManager)
{
    MbDualBufferFactory copy(factory);
    MbDualBufferFactory assigned(nullptr, RCShdPtr<MbManager>());
    assigned = factory;
    factory = MbDualBufferFactory(nullptr, RCShdPtr<MbManager>());
    for (MbDualBufferFactory *each : {&copy, &assigned}) {
        MbBuffer const dual = each->create(first, 0, 1, second, 0, 1);
        EXPECT_EQ(contentsOf(dual), "aA");
        EXPECT_EQ(static_cast<MbHeapManager const &>(*views).getAllocated(), 2u);
    }
}

TEST_F(DualBuffer, SlicesThatAreEmptyOrReachOutsideFailAssertions)
{
    EXPECT_EQ(assertionOf(-1, 0, -1, 0), "offset1 >= 0");
    EXPECT_EQ(assertionOf(0, 0, -1, 0), "offset2 >= 0");
    EXPECT_EQ(assertionOf(0, 0, 0, 0), "size1 > 0");
    EXPECT_EQ(assertionOf(0, 11, 0, -1), "size2 > 0");
    EXPECT_EQ(assertionOf(1, 10, 1, 10), "( offset1 + size1 ) <= buf1.getSize()");
    EXPECT_EQ(assertionOf(0, 10, 1, 10), "( offset2 + size2 ) <= buf2.getSize()");
    EXPECT_EQ(assertionOf(INT_MAX, INT_MAX, 0, 1), "( offset1 + size1 ) <= buf1.getSize()");
    EXPECT_EQ(assertionOf(0, 10, 9, 1), "");
}

} // namespace
} // namespace ZvTest
