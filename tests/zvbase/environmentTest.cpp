#include "testing/childProcess.h"
#include "testing/environmentHeld.h"
#include "zvbase/dbgBuildInfo.h"
#include "zvbase/envVar.h"
#include "zvbase/failures.h"
#include "zvbase/hmHeapMgr.h"
#include "zvbase/logTestUtil.h"
#include "zvbase/osFilePath.h"
#include "zvbase/rnNumRecUniformRng.h"
#include "zvbase/zvbase.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>

namespace ZvTest {

using namespace Zv;

namespace {

// ---- environment

TEST(EnvIntVar, HasItsDefaultIfNotSet)
{
    setVariable("ZV_TEST_VARIABLE", nullptr);
    EnvIntVar const variable("ZV_TEST_VARIABLE", 12);
    EXPECT_EQ(variable.getValue(), 12);
    EXPECT_STREQ(variable.getName(), "ZV_TEST_VARIABLE");
}

TEST(EnvIntVar, ReadsAgainOnlyOnRequest)
{
    EnvVar::putEnv("ZV_TEST_VARIABLE=5");
    EnvIntVar variable("ZV_TEST_VARIABLE", 0);
    EXPECT_EQ(variable.getValue(), 5);
    EnvVar::putEnv("ZV_TEST_VARIABLE=-6");
    EXPECT_EQ(variable.getValue(), 5);
    variable.refresh();
    EXPECT_EQ(variable.getValue(), -6);
    setVariable("ZV_TEST_VARIABLE", nullptr);
    variable.refresh();
    EXPECT_EQ(variable.getValue(), 0);
}

int readInt(std::string const &text)
{
    EnvVar::putEnv(("ZV_TEST_VARIABLE=" + text).c_str());
    return EnvIntVar("ZV_TEST_VARIABLE", 77).getValue();
}

TEST(EnvIntVar, TakesOneWholeNumber)
{
    EXPECT_EQ(readInt("0"), 0);
    EXPECT_EQ(readInt("-1"), -1);
    EXPECT_EQ(readInt("+1"), 1);
    EXPECT_EQ(readInt("  42\t"), 42);
    EXPECT_EQ(readInt("0012"), 12);
    EXPECT_EQ(readInt("2147483647"), 2147483647);
    EXPECT_EQ(readInt("-2147483648"), -2147483647 - 1);
}

TEST(EnvIntVar, NonsenseGivesTheDefault)
{
    for (char const *text : {"", " ", "yes", "1x", "x1", "1 2", "1.5", "0x10", "--1", "+-1", "++1",
                             "+", "-", "2147483648", "-2147483649", "99999999999999999999"})
        EXPECT_EQ(readInt(text), 77) << '"' << text << '"';
}

TEST(EnvVar, PutsTheTextBehindTheFirstEqualSign)
{
    EnvVar::putEnv("ZV_TEST_VARIABLE=a=b");
    EXPECT_EQ(EnvVar::getEnv("ZV_TEST_VARIABLE"), "a=b");
    EnvVar::putEnv("ZV_TEST_VARIABLE=");
    EXPECT_EQ(EnvVar::getEnv("ZV_TEST_VARIABLE"), "");
#ifndef _WIN32 // on Windows a variable without a value does not exist
    EXPECT_NE(std::getenv("ZV_TEST_VARIABLE"), nullptr);
#endif
}

TEST(EnvVar, KeepsACopy)
{
    std::string text = "ZV_TEST_VARIABLE=kept";
    EnvVar::putEnv(text.c_str());
    text.assign(text.size(), 'x');
    EXPECT_EQ(EnvVar::getEnv("ZV_TEST_VARIABLE"), "kept");
}

TEST(EnvVar, RefusesATextThatAssignsNothing)
{
    CapturedLog const log;
    EXPECT_THROW(EnvVar::putEnv("ZV_TEST_VARIABLE"), AssertionFailed);
    EXPECT_THROW(EnvVar::putEnv("=x"), AssertionFailed);
    EXPECT_THROW(EnvVar::putEnv(""), AssertionFailed);
    EXPECT_EQ(log.getTexts().at(0), "Assertion \"separator && separator != assignment\" failed\n");
}

TEST(EnvVar, ItsGuardKeepsTheEnvironmentFromOtherThreads)
{
    EnvIntVar variable("ZV_TEST_VARIABLE", 0);
    EXPECT_TRUE(waitsForTheEnvironment([] { EnvVar::putEnv("ZV_TEST_VARIABLE=1"); }));
    EXPECT_TRUE(waitsForTheEnvironment([] { EnvVar::getEnv("ZV_TEST_VARIABLE"); }));
    EXPECT_TRUE(waitsForTheEnvironment([&] { variable.refresh(); }));
    EXPECT_TRUE(waitsForTheEnvironment([] { EnvVar::Guard const guard; }));
    EXPECT_FALSE(waitsForTheEnvironment([&] { variable.getValue(); }));
    EXPECT_EQ(variable.getValue(), 1);
    EnvVar::Guard const guard;
    EnvVar::Guard const another;
    EnvVar::putEnv("ZV_TEST_VARIABLE=2");
    EXPECT_EQ(EnvVar::getEnv("ZV_TEST_VARIABLE"), "2");
}

// ---- build information

class TestInfo : public DbgBuildInfo
{
public:
    TestInfo(char const *library, int minor) : _library(library), _minor(minor) { ++nbAlive; }
    ~TestInfo() override { --nbAlive; }
    char const *getProductName() const override { return "product"; }
    int getMajorVersion() const override { return 3; }
    int getMinorVersion() const override { return _minor; }
    char const *getStatusName() const override { return "alpha"; }
    char const *getLibraryName() const override { return _library; }
    char const *getBuildTag(bool longForm) const override { return longForm ? "long" : "short"; }
    char const *getBuildDate() const override { return "today"; }
    char const *getBuildConfiguration() const override { return "here"; }
    char const *getBuilder() const override { return "somebody"; }
    char const *getExtraInformation() const override { return "nothing else"; }

    static inline int nbAlive = 0;

private:
    char const *_library;
    int _minor;
};

TEST(DbgBuildInfo, IsListedAndReplacedByTheNextOfItsLibrary)
{
    DbgBuildInfoUtil::registerInfo(ObjPtr<DbgBuildInfo>(new TestInfo("libA", 1)));
    DbgBuildInfoUtil::registerInfo(ObjPtr<DbgBuildInfo>(new TestInfo("libB", 2)));
    std::size_t const before = DbgBuildInfoUtil::getNbInfos();
    DbgBuildInfoUtil::registerInfo(ObjPtr<DbgBuildInfo>(new TestInfo("libA", 3)));
    EXPECT_EQ(DbgBuildInfoUtil::getNbInfos(), before);
    EXPECT_EQ(TestInfo::nbAlive, 2);
    std::ostringstream list;
    DbgBuildInfoUtil::list(list);
    auto const paragraph = [](char const *library, int minor) {
        return std::string(library) + " 3." + std::to_string(minor) +
               " alpha, product\n    tag long (short)\n    built today by somebody, here\n"
               "    nothing else\n";
    };
    EXPECT_TRUE(list.str().ends_with(paragraph("libA", 3) + paragraph("libB", 2))) << list.str();
}

TEST(DbgBuildInfo, ANullRecordIsRefused)
{
    EXPECT_THROW(DbgBuildInfoUtil::registerInfo(ObjPtr<DbgBuildInfo>()), RCEx::ExNullPtr);
    DbgBuildInfoUtil::registerInfo(ObjPtr<DbgBuildInfo>(new TestInfo("libC", 1)));
    std::size_t const before = DbgBuildInfoUtil::getNbInfos();
    EXPECT_THROW(DbgBuildInfoUtil::registerInfo(ObjPtr<DbgBuildInfo>()), RCEx::ExNullPtr);
    EXPECT_EQ(DbgBuildInfoUtil::getNbInfos(), before);
}

TEST(DbgBuildInfo, AProcessWithoutRecordsRefusesAnOwnerOfNothing)
{
    ChildProcess child({"--child", "nullInfo"});
    EXPECT_EQ(child.await().output, "refused, 0 records\n");
}

/// Stream buffer that has another thread use the list during each output.
class Visited : public std::stringbuf
{
protected:
    std::streamsize xsputn(char const *text, std::streamsize length) override
    {
        std::thread([] {
            DbgBuildInfoUtil::registerInfo(ObjPtr<DbgBuildInfo>(new TestInfo("libD", 1)));
            DbgBuildInfoUtil::getNbInfos();
        }).join();
        return std::stringbuf::xsputn(text, length);
    }
};

TEST(DbgBuildInfo, IsNotKeptFromOtherThreadsWhileItsListIsWritten)
{
    DbgBuildInfoUtil::registerInfo(ObjPtr<DbgBuildInfo>(new TestInfo("libD", 1)));
    Visited buffer;
    std::ostream stream(&buffer);
    DbgBuildInfoUtil::list(stream);
    EXPECT_NE(buffer.str().find("libD 3.1 alpha"), std::string::npos) << buffer.str();
}

// ---- heap

TEST(HmHeapMgr, IsOneAndWarmsUpAgain)
{
    HmHeapMgr &heap = HmHeapMgr::getInstance();
    EXPECT_EQ(&HmHeapMgr::getInstance(), &heap);
    unsigned const before = heap.getNbWarmUps();
    heap.warmUp();
    heap.warmUp();
    EXPECT_EQ(heap.getNbWarmUps(), before + 2);
}

// ---- random numbers

TEST(RnNumRecUniformRng, IsUniform)
{
    RnNumRecUniformRng generator;
    constexpr int NUMBERS = 100000;
    constexpr int BINS = 20;
    int bins[BINS] = {};
    double sum = 0;
    for (int i = 0; i < NUMBERS; ++i) {
        double const number = generator.eval();
        ASSERT_GE(number, 0.0);
        ASSERT_LT(number, 1.0);
        sum += number;
        ++bins[static_cast<int>(number * BINS)];
    }
    EXPECT_NEAR(sum / NUMBERS, 0.5, 0.005);
    double chiSquare = 0;
    for (int bin : bins)
        chiSquare += (bin - NUMBERS / BINS) * (bin - NUMBERS / BINS) / (1.0 * NUMBERS / BINS);
    EXPECT_LT(chiSquare, 43.8) << "19 degrees of freedom: beyond one in a thousand";
}

TEST(RnNumRecUniformRng, ACopyContinuesWithTheSameSequence)
{
    RnNumRecUniformRng first(7);
    first.eval();
    RnNumRecUniformRng second = first;
    RnNumRecUniformRng other(8);
    double const number = first.eval();
    EXPECT_EQ(second.eval(), number);
    EXPECT_NE(other.eval(), number);
    second = RnNumRecUniformRng(7);
    second.eval();
    EXPECT_EQ(second.eval(), number);
}

// ---- paths

TEST(OsFilePath, TakesAPathApart)
{
    OsFilePath const path("/usr/share/a.b.wav");
    EXPECT_EQ(path.getPath(), "/usr/share/a.b.wav");
    EXPECT_EQ(path.getName(), "a.b.wav");
    EXPECT_EQ(path.getExtension(), ".wav");
    EXPECT_EQ(path.getDirectory(), OsFilePath("/usr/share"));
    EXPECT_TRUE(path.isAbsolute());
    EXPECT_EQ(OsFilePath("/a").getDirectory().getPath(), "/");
    EXPECT_EQ(OsFilePath("a").getDirectory().getPath(), "");
    EXPECT_EQ(OsFilePath("a/").getName(), "");
    EXPECT_EQ(OsFilePath("x.d/name").getExtension(), "");
    EXPECT_EQ(OsFilePath(".hidden").getExtension(), "");
    EXPECT_EQ(OsFilePath("a.").getExtension(), ".");
    EXPECT_FALSE(OsFilePath("a/b").isAbsolute());
    EXPECT_FALSE(OsFilePath().isAbsolute());
    EXPECT_TRUE(OsFilePath().isEmpty());
}

TEST(OsFilePath, PutsPathsTogether)
{
    auto const joined = [](char const *directory, char const *entry) {
        return OsFilePath(directory).append(OsFilePath(entry)).getPath();
    };
    EXPECT_EQ(joined("a", "b"), "a/b");
    EXPECT_EQ(joined("a/", "b"), "a/b");
    EXPECT_EQ(joined("/", "b"), "/b");
    EXPECT_EQ(joined("", "b"), "b");
    EXPECT_EQ(joined("a", "/b"), "/b");
}

TEST(OsFilePath, IsAValue)
{
    EXPECT_LT(OsFilePath("a"), OsFilePath("b"));
    EXPECT_EQ(OsFilePath("a"), OsFilePath("a"));
    std::ostringstream stream;
    stream << OsFilePath("a/b");
    EXPECT_EQ(stream.str(), "a/b");
}

// ---- statics

int nbImmortalsAlive = 0;

struct Counted
{
    explicit Counted(int n) : number(n) { ++nbImmortalsAlive; }
    ~Counted() { --nbImmortalsAlive; }
    int number;
};

TEST(Immortal, IsBuiltAndNeverDestroyed)
{
    int const before = nbImmortalsAlive;
    {
        Immortal<Counted> object(4);
        Immortal<Counted> const &same = object;
        EXPECT_EQ(object->number, 4);
        (*object).number = 5;
        EXPECT_EQ(same->number, 5);
        EXPECT_EQ(&*same, &object.get());
    }
    EXPECT_EQ(nbImmortalsAlive, before + 1);
    static_assert(std::is_trivially_destructible_v<Immortal<Counted>>);
}

} // namespace
} // namespace ZvTest
