#include "resmgt/locks/mtUtil.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace Zv {
namespace {

TEST(MtUtil, AnswersWhatThePlatformGives)
{
    EXPECT_GE(MtUtil::getNbProcessors(), 1);
    EXPECT_TRUE(MtUtil::isSystemScopeDefault());
    EXPECT_TRUE(MtUtil::isRoot());
    MtUtil::yield();
    MtUtil::unlockProcessMemory();
}

TEST(MtUtil, DefaultsCannotBeChanged)
{
    MtUtil::setFifoScheduledDefault(true);
    EXPECT_FALSE(MtUtil::isFifoScheduledDefault());
    MtUtil::setSystemScopeDefault(false);
    EXPECT_TRUE(MtUtil::isSystemScopeDefault());
}

TEST(MtUtil, TellsMemoryThatCanBeReadFromMemoryThatCannot)
{
    auto const page = static_cast<int>(::sysconf(_SC_PAGESIZE));
    void * const two = ::mmap(nullptr, static_cast<std::size_t>(2 * page), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(two, MAP_FAILED);
    EXPECT_EQ(MtUtil::testWritable(two, 2 * page), 1);
    EXPECT_EQ(MtUtil::testWritable(two, 0), 1);
    ASSERT_EQ(::munmap(static_cast<char *>(two) + page, static_cast<std::size_t>(page)), 0);
    EXPECT_EQ(MtUtil::testWritable(two, page), 1);
    EXPECT_EQ(MtUtil::testWritable(two, 2 * page), 0) << "only the first page is there";
    ASSERT_EQ(::munmap(two, static_cast<std::size_t>(page)), 0);
    EXPECT_EQ(MtUtil::testWritable(two, page), 0);
}

} // namespace
} // namespace Zv
