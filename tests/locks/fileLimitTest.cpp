// Tests of a process that is not allowed to write files.
#include "resmgt/locks/mtUtil.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include <sys/resource.h>
#include <unistd.h>

namespace ZvTest {

using namespace Zv;

namespace {

TEST(MtUtil, AFailureThatIsNotTheMemorysIsReported)
{
    // The process is not allowed to write files. Its standard error is a pipe, to which the limit
    // does not apply.
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    int const standardError = ::dup(STDERR_FILENO);
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[1]);
    auto const handler = ::signal(SIGXFSZ, SIG_IGN);
    rlimit former;
    ::getrlimit(RLIMIT_FSIZE, &former);
    rlimit const none = {0, former.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &none);

    char const byte = 0;
    int const result = MtUtil::testWritable(&byte, 1);

    ::setrlimit(RLIMIT_FSIZE, &former);
    ::signal(SIGXFSZ, handler);
    ::dup2(standardError, STDERR_FILENO);
    ::close(standardError);
    char text[256] = {};
    EXPECT_GT(::read(ends[0], text, sizeof text - 1), 0);
    ::close(ends[0]);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(std::string(text), std::string("testWritable: ") + std::strerror(EFBIG) + "\n");
}

} // namespace
} // namespace ZvTest
