#include "resmgt/locks/mtUtil.h"

#include "platform/services.h"
#include "testing/capturedLog.h"
#include "testing/childProcess.h"
#include "testing/environmentHeld.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgTrace.h"
#include "zvbase/trace.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include <unistd.h>

namespace ZvTest {

using namespace Zv;

namespace {

std::string line(char const *format, char const *name, auto value)
{
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, format, name, value);
    return buffer;
}

TEST(MtUtil, ReturnsWhatThePlatformReports)
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

TEST(MtUtil, LocksNoMemoryAndReportsItAtItsLevelOnly)
{
    LgLog::flush();
    CapturedLog const output;
    Trace::setEnabled("MtUtil", false);
    MtUtil::lockProcessMemory();
    LgLog::flush();
    EXPECT_EQ(output.getLines(), Lines());

    Trace::setEnabled("MtUtil", true);
    MtUtil::lockProcessMemory();
    Trace::setEnabled("MtUtil", false);
    std::string const end = ": Process memory not locked, not available under NT4.0.\n";
    LgLog::flush();
    std::string const text = output.getText();
    ASSERT_GT(text.size(), end.size());
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
    EXPECT_NE(text.find("../src/resmgt/locks/mtUtil.cpp("), std::string::npos) << text;
}

TEST(MtUtil, PrintsTheConfigurationOfTheSystem)
{
    SYSTEM_INFO info;
    ::GetSystemInfo(&info);
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof version;
    ::GetVersionExA(&version);
    char const * const word = "%-40s %10d\n";
    char const * const number = "%-40s %10ld\n";
    char const * const address = "%-40s %p\n";
    auto const asLong = [](auto value) { return static_cast<long>(value); };
    std::string const expected =
        "System Info\n" + line(word, "ProcessorArchitecture", int{info.wProcessorArchitecture}) +
        line(number, "PageSize", asLong(info.dwPageSize)) +
        line(address, "MinimumApplicationAddress", info.lpMinimumApplicationAddress) +
        line(address, "MaximumApplicationAddress", info.lpMaximumApplicationAddress) +
        line(number, "ActiveProcessorMask", asLong(info.dwActiveProcessorMask)) +
        line(number, "NumberOfProcessors", asLong(info.dwNumberOfProcessors)) +
        line(number, "ProcessorType", asLong(info.dwProcessorType)) +
        line(number, "AllocationGranularity", asLong(info.dwAllocationGranularity)) +
        line(word, "ProcessorLevel", int{info.wProcessorLevel}) +
        line(word, "ProcessorRevision", int{info.wProcessorRevision}) + "OS Version\n" +
        line(number, "dwMajorVersion", asLong(version.dwMajorVersion)) +
        line(number, "dwMinorVersion", asLong(version.dwMinorVersion)) +
        line(number, "dwBuildNumber", asLong(version.dwBuildNumber)) +
        line(number, "dwPlatformId", asLong(version.dwPlatformId)) +
        line("%-40s %s\n", "CSDVersion", version.szCSDVersion) + "Other Info\n" +
        "TLS_MINIMUM_AVAILABLE                            64\n"
        "CLOCKS_PER_SEC                                 1000\n";

    LgLog::flush();
    CapturedLog const output;
    MtUtil::printSysConf();
    LgLog::flush();
    EXPECT_EQ(output.getText(), expected);
}

TEST(MtUtil, DistinguishesReadableMemory)
{
    SYSTEM_INFO info;
    ::GetSystemInfo(&info);
    auto const page = static_cast<int>(info.dwPageSize);
    void * const two = ::VirtualAlloc(nullptr, static_cast<std::size_t>(2 * page),
                                      MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    ASSERT_NE(two, nullptr);
    EXPECT_EQ(MtUtil::testWritable(two, 2 * page), 1);
    EXPECT_EQ(MtUtil::testWritable(two, 0), 1);
    ASSERT_TRUE(::VirtualFree(static_cast<char *>(two) + page, static_cast<std::size_t>(page),
                              MEM_DECOMMIT));
    EXPECT_EQ(MtUtil::testWritable(two, page), 1);
    EXPECT_EQ(MtUtil::testWritable(two, 2 * page), 0) << "only the first page is there";
    ASSERT_TRUE(::VirtualFree(two, 0, MEM_RELEASE));
    EXPECT_EQ(MtUtil::testWritable(two, page), 0);
}

/// Changes an environment variable while the object exists.
class WithVariable
{
public:
    WithVariable(char const *name, char const *value) : _name(name)
    {
        if (char const *former = std::getenv(name))
            _former = former;
        setVariable(name, value);
    }
    ~WithVariable() { setVariable(_name, _former ? _former->c_str() : nullptr); }

private:
    char const *_name;
    std::optional<std::string> _former;
};

TEST(MtUtil, WithoutAScratchFileNothingIsWritable)
{
    WithVariable const nowhere("TMPDIR", "/no such folder");
    char const byte = 0;
    EXPECT_EQ(MtUtil::testWritable(&byte, 1), 0);
}

TEST(MtUtil, ItsScratchFileMayHaveTheFirstNumberThereIs)
{
    char const byte = 'x';
    int const input = ::dup(0);
    ASSERT_EQ(::close(0), 0);
    int const answer = MtUtil::testWritable(&byte, 1);
    ASSERT_EQ(::dup2(input, 0), 0);
    ASSERT_EQ(::close(input), 0);
    EXPECT_EQ(answer, 1);
}

TEST(MtUtil, ReadsItsFolderUnderTheLockOfTheEnvironment)
{
    char const byte = 'x';
    EXPECT_TRUE(waitsForTheEnvironment([&] { MtUtil::testWritable(&byte, 1); }));
}

} // namespace
} // namespace ZvTest
