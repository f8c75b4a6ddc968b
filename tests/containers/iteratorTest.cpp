#include "resmgt/containers/iterator.h"

#include "resmgt/containers/iteratorEx.h"
#include "resmgt/containers/iteratorSTL.h"
#include "resmgt/smartPtrs/rcProxy.h"
#include "testing/failures.h"
#include "zvbase/rcEx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <numeric>
#include <string>
#include <type_traits>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

using Numbers = std::vector<int>;

static_assert(std::input_iterator<Iterator<int>>);
static_assert(std::input_iterator<ConstIterator<int>>);
static_assert(std::sentinel_for<std::default_sentinel_t, Iterator<int>>);
static_assert(std::sentinel_for<ConstIterator<int>, ConstIterator<int>>);
static_assert(std::is_same_v<ConstIterator<int>::iterator_category, std::input_iterator_tag>);
static_assert(std::is_same_v<ConstIterator<int>::value_type, int>);
static_assert(std::is_same_v<ConstIterator<int>::difference_type, std::ptrdiff_t>);
static_assert(std::is_same_v<ConstIterator<int>::pointer, int *>);
static_assert(std::is_same_v<ConstIterator<int>::reference, int &>);
static_assert(std::is_same_v<decltype(*std::declval<ConstIterator<int>>()), int const &>);
static_assert(std::is_same_v<decltype(*std::declval<Iterator<int>>()), int &>);

/// The two kinds of iterators over the same numbers.
struct OfConst
{
    using Handle = ConstIterator<int>;
    static Handle over(Numbers &numbers) { return Handle(new ConstIteratorSTL<Numbers>(&numbers)); }
};
struct OfMutable
{
    using Handle = Iterator<int>;
    static Handle over(Numbers &numbers) { return Handle(new IteratorSTL<Numbers>(&numbers)); }
};

template <class Kind>
class IteratorTest : public testing::Test
{
protected:
    typename Kind::Handle over(Numbers &numbers) { return Kind::over(numbers); }

    Numbers _numbers{1, 2, 3};
    Numbers _none;
};

using Kinds = testing::Types<OfConst, OfMutable>;
TYPED_TEST_SUITE(IteratorTest, Kinds);

TYPED_TEST(IteratorTest, WalksForwardAndBack)
{
    auto i = this->over(this->_numbers);
    EXPECT_TRUE(i.atBegin());
    EXPECT_FALSE(i.atEnd());
    EXPECT_EQ(*i, 1);
    EXPECT_EQ(*++i, 2);
    EXPECT_EQ(*i++, 2);
    EXPECT_EQ(i.item(), 3);
    EXPECT_EQ(i.operator->(), &this->_numbers[2]);
    EXPECT_EQ(*--i, 2);
    EXPECT_EQ(*i--, 2);
    EXPECT_TRUE(i.atBegin());
    EXPECT_EQ(*i.next(), 2);
    EXPECT_EQ(*i.previous(), 1);
    EXPECT_EQ(i.getCardinality(), 3U);
    i.last();
    EXPECT_EQ(*i, 3);
    i.first();
    EXPECT_EQ(*i, 1);
    i.end();
    EXPECT_TRUE(i.atEnd());
    EXPECT_EQ(*--i, 3);
}

TYPED_TEST(IteratorTest, ACopyKeepsItsOwnPosition)
{
    auto const original = this->over(this->_numbers);
    auto copy = original;
    EXPECT_EQ(&*original, &*copy);
    ++copy;
    EXPECT_EQ(*original, 1);
    EXPECT_EQ(*copy, 2);
    copy.last();
    EXPECT_EQ(*original, 1);
    copy = original;
    EXPECT_EQ(*copy, 1);
}

TYPED_TEST(IteratorTest, ADefaultOneThrowsOnAnyUse)
{
    typename TypeParam::Handle none;
    EXPECT_THROW(static_cast<void>(*none), RCEx::ExNullPtr);
    EXPECT_THROW(none.item(), RCEx::ExNullPtr);
    EXPECT_THROW(none.first(), RCEx::ExNullPtr);
    EXPECT_THROW(none.last(), RCEx::ExNullPtr);
    EXPECT_THROW(none.end(), RCEx::ExNullPtr);
    EXPECT_THROW(none.atEnd(), RCEx::ExNullPtr);
    EXPECT_THROW(none.atBegin(), RCEx::ExNullPtr);
    EXPECT_THROW(none.next(), RCEx::ExNullPtr);
    EXPECT_THROW(none.previous(), RCEx::ExNullPtr);
    EXPECT_THROW(none.getCardinality(), RCEx::ExNullPtr);
    EXPECT_THROW(++none, RCEx::ExNullPtr);
    EXPECT_THROW(none++, RCEx::ExNullPtr);
    EXPECT_THROW(--none, RCEx::ExNullPtr);
    EXPECT_THROW(none--, RCEx::ExNullPtr);
}

TYPED_TEST(IteratorTest, StepsBeyondEitherEndThrow)
{
    auto i = this->over(this->_numbers);
    EXPECT_EQ(reasonOf<std::out_of_range>([&] { --i; }), "\tReached the container boundary");
    EXPECT_EQ(*i, 1);
    i.last();
    ++i;
    EXPECT_TRUE(i.atEnd());
    EXPECT_EQ(reasonOf<std::out_of_range>([&] { ++i; }), "\tReached the container boundary");
    EXPECT_EQ(reasonOf<std::out_of_range>([&] { i++; }), "\tReached the container boundary");
    EXPECT_EQ(reasonOf<std::out_of_range>([&] { *i; }), "\tReached the container boundary");
    EXPECT_TRUE(i.atEnd());
    EXPECT_THROW(++i, IteratorEx);
}

TYPED_TEST(IteratorTest, AnEmptyContainerBeginsAtItsEnd)
{
    auto i = this->over(this->_none);
    EXPECT_TRUE(i.atBegin());
    EXPECT_TRUE(i.atEnd());
    EXPECT_EQ(i.getCardinality(), 0U);
    i.last();
    EXPECT_TRUE(i.atEnd());
    EXPECT_THROW(i.next(), IteratorEx::ExOutOfRange);
    EXPECT_THROW(i.previous(), IteratorEx::ExOutOfRange);
    EXPECT_THROW(i.item(), IteratorEx::ExOutOfRange);
}

TYPED_TEST(IteratorTest, IsEqualAtTheSamePlaceOnly)
{
    auto const i = this->over(this->_numbers);
    auto j = this->over(this->_numbers);
    EXPECT_TRUE(i == j);
    ++j;
    EXPECT_TRUE(i != j);
    Numbers others{1, 2, 3};
    EXPECT_FALSE(i == this->over(others));
    Numbers alsoNone;
    EXPECT_FALSE(this->over(this->_none) == this->over(alsoNone));
    using Handle = typename TypeParam::Handle;
    EXPECT_FALSE(i == Handle());
    EXPECT_TRUE(Handle() == Handle());
    EXPECT_FALSE(i == std::default_sentinel);
    j.end();
    EXPECT_TRUE(j == std::default_sentinel);
}

TYPED_TEST(IteratorTest, ServesTheAlgorithms)
{
    auto const begin = this->over(this->_numbers);
    auto end = begin;
    end.end();
    EXPECT_EQ(std::distance(begin, end), 3);
    EXPECT_EQ(std::accumulate(begin, end, 0), 6);
    EXPECT_EQ(*std::find(begin, end, 2), 2);
    EXPECT_TRUE(std::find(begin, end, 9) == end);
    EXPECT_EQ(Numbers(begin, end), this->_numbers);
    EXPECT_EQ(
        std::ranges::count_if(begin, std::default_sentinel, [](int number) { return number > 0; }),
        3);
}

TEST(Iterator, ChangesElements)
{
    Numbers numbers{1, 2};
    Iterator<int> i(new IteratorSTL<Numbers>(&numbers));
    *i = 10;
    (++i).item() = 20;
    EXPECT_EQ(numbers, (Numbers{10, 20}));
}

TEST(Iterator, KeepsAContainerThatItSharesAlive)
{
    using Names = std::list<std::string>;
    using Holder = RCProxyShdPtr<Names>;
    Holder holder(ObjPtr<Names>(new Names{"a", "b"}));
    ConstIterator<std::string> i(new ConstIteratorSTL<Names, Holder>(holder));
    Iterator<std::string> j(new IteratorSTL<Names, Holder>(holder));
    holder = Holder();
    EXPECT_EQ(*i, "a");
    *j = "c";
    EXPECT_EQ(*i++, "c");
    EXPECT_EQ(*i, "b");
    EXPECT_EQ(i->size(), 1U);
}

TEST(Iterator, RefusesANullContainer)
{
    Numbers const * const none = nullptr;
    using Shared = RCProxyShdPtr<Numbers>;
    EXPECT_THROW(ConstIterator<int>(new ConstIteratorSTL<Numbers>(none)), RCEx::ExNullPtr);
    EXPECT_THROW(Iterator<int>(new IteratorSTL<Numbers, Shared>(Shared())), RCEx::ExNullPtr);
}

TEST(IteratorEx, KeepsItsTextThroughAllBases)
{
    IteratorEx::ExOutOfRange const error("file", 1);
    EXPECT_STREQ(error.getReason(), "\tReached the container boundary");
    EXPECT_STREQ(error.getReason(), static_cast<std::exception const &>(error).what());
    ObjPtr<ExBase> copy(error.clone());
    EXPECT_STREQ(error.getReason(), copy->getReason());
}

} // namespace
} // namespace ZvTest
