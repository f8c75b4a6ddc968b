#include "zvbase/trace.h"
#include "testing/childProcess.h"

#include "platform/services.h"
#include "zvbase/exSysError.h"
#include "zvbase/logTestUtil.h"
#include "zvbase/traceManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iterator>
#include <regex>
#include <semaphore>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

TraceLevel &getLevel()
{
    static TraceLevel &level = *Trace::registerLevel("TraceTest", __FILE__);
    level.setEnabled(true);
    return level;
}

// ---- levels

TEST(TraceLevel, IsOffUntilSwitchedOn)
{
    TraceLevel &level = *Trace::registerLevel("TraceTest.off", __FILE__);
    EXPECT_FALSE(Trace::isEnabled(level));
    level.setEnabled(true);
    EXPECT_TRUE(Trace::isEnabled(level));
    level.setEnabled(false);
    EXPECT_FALSE(Trace::isEnabled(level));
}

TEST(TraceLevel, TheMainLevelIsOn)
{
    EXPECT_TRUE(Trace::isEnabled(*Trace::MainTraceLevel));
    EXPECT_STREQ(Trace::MainTraceLevel->getName(), "Main");
}

TEST(TraceLevel, OneNameIsOneLevel)
{
    std::string const name = "TraceTest.same";
    TraceLevel * const level = Trace::registerLevel("TraceTest.same", "a");
    EXPECT_EQ(Trace::registerLevel(name.c_str(), "b"), level);
    EXPECT_NE(Trace::registerLevel("TraceTest.other", "a"), level);
    EXPECT_EQ(Trace::registerLevel("Main", "a"), Trace::MainTraceLevel);
}

TEST(TraceLevel, IsSwitchedByNameBeforeAndAfterItIsRegistered)
{
    Trace::setEnabled("TraceTest.early", true);
    TraceLevel &level = *Trace::registerLevel("TraceTest.early", __FILE__);
    EXPECT_TRUE(level.isEnabled());
    Trace::setEnabled("TraceTest.early", false);
    EXPECT_FALSE(level.isEnabled());
    Trace::setEnabled("TraceTest.earl", true);
    EXPECT_FALSE(level.isEnabled());
}

TEST(TraceLevel, TheStarMeansAll)
{
    TraceLevel &level = *Trace::registerLevel("TraceTest.star", __FILE__);
    Trace::setEnabled("*", true);
    EXPECT_TRUE(level.isEnabled());
    EXPECT_TRUE(Trace::registerLevel("TraceTest.late", __FILE__)->isEnabled());
    Trace::setEnabled("*", false);
    EXPECT_FALSE(level.isEnabled());
    EXPECT_FALSE(Trace::isEnabled(*Trace::MainTraceLevel));
    EXPECT_FALSE(Trace::registerLevel("TraceTest.later", __FILE__)->isEnabled());
    Trace::setEnabled("Main", true);
}

// ---- lines

TEST(Trace, ALineHasItsMomentTagAndPlace)
{
    CapturedLog const log;
    int const line = __LINE__ + 1;
    ZV_TRACE(getLevel(), "x = " << 42);
    ASSERT_EQ(log.getLines().size(), 1U);
    std::regex const expected(" *\\d+\\.\\d{6} unknown         "
                              "\\.\\./tests/zvbase/traceTest\\.cpp\\(" +
                              std::to_string(line) + "\\): x = 42\n");
    EXPECT_TRUE(std::regex_match(log.getLines()[0], expected)) << log.getLines()[0];
}

TEST(Trace, ALineLooksTheSameThroughAQueue)
{
    CapturedLog const log;
    auto const write = [] { ZV_TRACE(getLevel(), "x = " << 42); };
    write();
    {
        TestLogger logger;
        write();
    }
    Lines const lines = log.getLines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].substr(12), lines[1].substr(12));
}

TEST(Trace, WhileALevelIsOffTheTextIsNotEvaluated)
{
    CapturedLog const log;
    TraceLevel &level = *Trace::registerLevel("TraceTest.silent", __FILE__);
    int evaluated = 0;
    ZV_TRACE(level, ++evaluated);
    EXPECT_EQ(evaluated, 0);
    level.setEnabled(true);
    ZV_TRACE(level, ++evaluated);
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(log.getLines().size(), 1U);
}

TEST(Trace, TheMacroIsOneStatement)
{
    CapturedLog const log;
    if (log.getLines().empty())
        ZV_TRACE(getLevel(), "yes, "
                                 << "with a comma");
    else
        ZV_TRACE(getLevel(), "no");
    EXPECT_EQ(log.getTexts(), (Lines{"yes, with a comma\n"}));
}

TEST(Trace, LogWritesTheHeadToAnyStream)
{
    std::ostringstream stream;
    Trace::log(stream, "a.cpp", 12) << "text";
    EXPECT_EQ(stream.str(), "unknown         a.cpp(12): text");
}

TEST(Trace, AnEntryTracesItsBeginningAndItsEnd)
{
    CapturedLog const log;
    TestLogger logger;
    {
        ZV_TRACE_ENTRY(getLevel(), "Here::there");
        ZV_TRACE(getLevel(), "inside");
        getLevel();
    }
    logger.flush();
    EXPECT_EQ(log.getTexts(), (Lines{"> Here::there\n", "inside\n", "< Here::there\n"}));
}

TEST(Trace, AnEntryAsksForTheLevelOnce)
{
    CapturedLog const log;
    TraceLevel &level = *Trace::registerLevel("TraceTest.entry", __FILE__);
    {
        ZV_TRACE_ENTRY(level, "silent");
        level.setEnabled(true);
    }
    EXPECT_TRUE(log.getLines().empty());
    {
        ZV_TRACE_ENTRY(level, "loud");
        level.setEnabled(false);
    }
    EXPECT_EQ(log.getTexts(), (Lines{"> loud\n", "< loud\n"}));
}

TEST(Trace, AnExceptionIsPrintedAtEveryLevel)
{
    CapturedLog const log;
    Trace::setEnabled("*", false);
    ::SetLastError(6);
    Trace::printException(ExSysErrorWindows("thrown.cpp", 3), "caught.cpp", 4);
    Trace::setEnabled("Main", true);
    ASSERT_EQ(log.getLines().size(), 1U);
    EXPECT_EQ(log.getLines()[0].substr(13),
              "unknown         caught.cpp(4): Exception: thrown.cpp(3): System error 6: The handle "
              "is invalid.\n");
}

// ---- nesting

std::string traced(char const *text)
{
    ZV_TRACE(getLevel(), "inner " << text);
    return text;
}

std::string tracedTwice(char const *text)
{
    ZV_TRACE(getLevel(), "middle " << traced(text));
    return text;
}

void writeNestedLines()
{
    ZV_TRACE(getLevel(), "outer " << traced("a") << ' ' << tracedTwice("b") << " end");
}

Lines getNestedLines()
{
    return {"inner a\n", "inner b\n", "middle b\n", "outer a b end\n"};
}

TEST(Trace, ATextThatTracesIsWrittenAfterItsOwnTrace)
{
    CapturedLog const log;
    writeNestedLines();
    EXPECT_EQ(log.getTexts(), getNestedLines());
}

TEST(Trace, LinesNestAtEveryPlaceOfTheQueue)
{
    CapturedLog const log;
    TestLogger logger;
    Lines const nestedLines = getNestedLines();
    Lines expected;
    for (int i = 0; i < 1000; ++i) {
        writeNestedLines();
        ZV_TRACE(getLevel(), std::string(static_cast<unsigned>(i) % 47, 'y'));
        expected.insert(expected.end(), nestedLines.begin(), nestedLines.end());
        expected.push_back(std::string(static_cast<unsigned>(i) % 47, 'y') + "\n");
        logger.flush();
    }
    EXPECT_EQ(TestLogger::getThreadQueue()->getNbLostLines(), 0U);
    EXPECT_EQ(log.getTexts(), expected);
}

TEST(Trace, AnOuterLineThatDoesNotFitTakesNoInnerLineAlong)
{
    CapturedLog const log;
    TestLogger logger;
    ZV_TRACE(getLevel(), std::string(LgQueue::CAPACITY, 'y') << traced("a"));
    EXPECT_EQ(TestLogger::getThreadQueue()->getNbLostLines(), 1U);
    logger.flush();
    Lines const texts = log.getTexts();
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_EQ(texts[0], "inner a\n");
}

TEST(Trace, AnInnerLineThatDoesNotFitLeavesTheOuterOneWhole)
{
    CapturedLog const log;
    TestLogger logger;
    auto const tooMuch = [] {
        ZV_TRACE(getLevel(), std::string(LgQueue::CAPACITY, 'y'));
        return "b";
    };
    ZV_TRACE(getLevel(), "a" << tooMuch() << "c");
    EXPECT_EQ(TestLogger::getThreadQueue()->getNbLostLines(), 1U);
    logger.flush();
    EXPECT_EQ(log.getTexts().back(), "abc\n");
}

TEST(Trace, TheFormatOfOneLineIsNotThatOfTheNext)
{
    CapturedLog const log;
    TestLogger logger;
    ZV_TRACE(getLevel(), std::hex << std::setfill('0') << std::setw(8) << 255 << std::setw(3));
    ZV_TRACE(getLevel(), 255 << ' ' << 1.23456789);
    logger.flush();
    EXPECT_EQ(log.getTexts(), (Lines{"000000ff\n", "255 1.23457\n"}));
}

TEST(Trace, AnInnerLineLeavesTheOuterOnesFormat)
{
    CapturedLog const log;
    TestLogger logger;
    ZV_TRACE(getLevel(), std::hex << std::setfill('*') << std::setw(4) << traced("a") << 255);
    logger.flush();
    EXPECT_EQ(log.getTexts(), (Lines{"inner a\n", "***aff\n"}));
}

TEST(Trace, AFailedStreamDoesNotSilenceTheNextLine)
{
    CapturedLog const log;
    TestLogger logger;
    {
        LgLine line;
        line.begin("a.cpp", 1).setstate(std::ios_base::failbit);
    }
    ZV_TRACE(getLevel(), "heard");
    logger.flush();
    EXPECT_EQ(log.getTexts().back(), "heard\n");
}

TEST(Trace, AnExceptionInATextLeavesTheBeginningOfTheLine)
{
    CapturedLog const log;
    TestLogger logger;
    auto const fail = []() -> int { throw std::runtime_error("no text"); };
    auto const write = [&] { ZV_TRACE(getLevel(), "so far " << fail()); };
    EXPECT_THROW(write(), std::runtime_error);
    ZV_TRACE(getLevel(), "next");
    logger.flush();
    EXPECT_EQ(log.getTexts(), (Lines{"so far \n", "next\n"}));
}

// ---- managers

class NamedTrace : public Trace
{
public:
    explicit NamedTrace(char const *name) : _name(name) {}
    void writeTag(std::ostream &stream) const override { stream << _name << ' '; }

private:
    char const *_name;
};

class TestManager : public TraceManager
{
public:
    explicit TestManager(char const *name) : _trace(name) { install(); }
    ~TestManager() override { retire(); }

    Trace *getTrace() override
    {
        ++nbAsked;
        if (onGetTrace)
            onGetTrace();
        return &_trace;
    }
    void print(char const *text) override { LgTrace::print(text); }

    std::function<void()> onGetTrace;
    int nbAsked = 0;

private:
    NamedTrace _trace;
};

TEST(TraceManager, TheBaseLibrarysOwnPrintsAndKnowsNoThread)
{
    CapturedLog const log;
    TraceManager * const manager = TraceManager::getInstance();
    ASSERT_NE(manager, nullptr);
    manager->print("as it is");
    EXPECT_EQ(log.getLines(), (Lines{"as it is\n"}));
    std::ostringstream tag;
    manager->getTrace()->writeTag(tag);
    EXPECT_EQ(tag.str(), "unknown         ");
}

TEST(TraceManager, IsInChargeWhileItIsInstalled)
{
    TraceManager * const former = TraceManager::getInstance();
    {
        TestManager manager("a");
        EXPECT_EQ(TraceManager::getInstance(), &manager);
        {
            TestManager inner("b");
            EXPECT_EQ(TraceManager::getInstance(), &inner);
        }
        EXPECT_EQ(TraceManager::getInstance(), &manager);
    }
    EXPECT_EQ(TraceManager::getInstance(), former);
}

TEST(TraceManager, IsAskedOnceForEachThreadWithAQueue)
{
    CapturedLog const log;
    TestLogger logger;
    {
        TestManager manager("one");
        ZV_TRACE(getLevel(), "1");
        ZV_TRACE(getLevel(), "2");
        EXPECT_EQ(manager.nbAsked, 1);
    }
    ZV_TRACE(getLevel(), "3");
    logger.flush();
    Lines const lines = log.getLines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].substr(13, 7), "one ../");
    EXPECT_EQ(lines[1].substr(13, 7), "one ../");
    EXPECT_EQ(lines[2].substr(13, 16), "unknown         ");
}

TEST(TraceManager, MayTraceWhileItIsAskedForAThreadsTag)
{
    CapturedLog const log;
    TestLogger logger;
    TestManager manager("tag");
    manager.onGetTrace = [] { ZV_TRACE(getLevel(), "asked"); };
    ZV_TRACE(getLevel(), "line");
    logger.flush();
    Lines const lines = log.getLines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].substr(13, 16), "unknown         ");
    EXPECT_EQ(lines[1].substr(13, 4), "tag ");
    EXPECT_EQ(log.getTexts(), (Lines{"asked\n", "line\n"}));
}

TEST(TraceManager, RetiresWhenNoThreadIsInside)
{
    CapturedLog const log;
    TestManager * const manager = new TestManager("slow");
    std::binary_semaphore inside(0);
    std::binary_semaphore leave(0);
    std::atomic<bool> isOut = false;
    manager->onGetTrace = [&] {
        inside.release();
        leave.acquire();
        isOut = true;
    };
    std::thread writer([] { ZV_TRACE(getLevel(), "slowly"); });
    inside.acquire();
    std::thread helper([&] {
        // When the destructor below begins to wait, the former manager is active again.
        while (TraceManager::getInstance() == manager)
            std::this_thread::yield();
        EXPECT_FALSE(isOut);
        leave.release();
    });
    delete manager;
    EXPECT_TRUE(isOut);
    writer.join();
    helper.join();
    EXPECT_EQ(log.getLines().at(0).substr(13, 5), "slow ");
}

/// Destroys the manager in charge when the first text is written to it.
class RetiringBuffer : public std::stringbuf
{
public:
    explicit RetiringBuffer(TestManager *manager) : _manager(manager) {}

protected:
    std::streamsize xsputn(char const *text, std::streamsize length) override
    {
        delete std::exchange(_manager, nullptr);
        return std::stringbuf::xsputn(text, length);
    }

private:
    TestManager *_manager;
};

// The destructor would wait here without end if the calling thread counted as inside the manager.
TEST(TraceManager, RetiresWhileACallersStreamIsWritten)
{
    RetiringBuffer buffer(new TestManager("tag"));
    std::ostream stream(&buffer);
    stream << std::setw(12);
    Trace::log(stream, "a.cpp", 12) << "text";
    EXPECT_EQ(buffer.str(), "tag a.cpp(12): text");
}

// ---- output

TEST(LgTrace, AddsAMissingLineEnd)
{
    CapturedLog const log;
    LgTrace::print("without");
    LgTrace::print("with\n");
    LgTrace::print("two\nlines");
    LgTrace::print("");
    EXPECT_EQ(log.getLines(), (Lines{"without\n", "with\n", "two\nlines\n", "\n"}));
}

TEST(LgTrace, BringsALongTextInPieces)
{
    CapturedLog const log;
    TestLogger logger;
    std::string text;
    for (int i = 0; i < 4000; ++i)
        text += "line " + std::to_string(i) + "\n";
    ASSERT_GT(text.size(), LgQueue::CAPACITY);
    for (std::size_t start = 0; start < text.size(); start += 20000) {
        std::string const part = text.substr(start, 20000);
        LgTrace::print(part.c_str());
        logger.flush();
    }
    std::string all;
    for (std::string const &line : log.getLines()) {
        all += line;
        EXPECT_LE(line.size(), LgQueue::CAPACITY / 4 + 1);
    }
    // A piece that ends in the middle of a line gets a line end.
    std::erase(all, '\n');
    std::erase(text, '\n');
    EXPECT_EQ(all, text);
    EXPECT_EQ(TestLogger::getThreadQueue()->getNbLostLines(), 0U);
}

TEST(LgTrace, KeepsTheLinesInAFile)
{
    std::string const path = testing::TempDir() + "zvbase_trace_file.txt";
    ASSERT_TRUE(LgTrace::openFile(path.c_str()));
    LgTrace::print("directly");
    {
        TestLogger logger;
        LgTrace::print("through a queue");
    }
    EXPECT_TRUE(LgTrace::closeFile());
    std::ifstream file(path);
    std::string const text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(text, "directly\nthrough a queue\n");
    EXPECT_FALSE(LgTrace::closeFile()) << "none is open";
    std::remove(path.c_str());
}

TEST(LgTrace, AFileThatCannotBeOpenedChangesNothing)
{
    CapturedLog const log;
    EXPECT_FALSE(LgTrace::openFile("/no such directory/trace.txt"));
    LgTrace::print("still here");
    EXPECT_EQ(log.getLines(), (Lines{"still here\n"}));
}

TEST(LgTrace, ReportsThatAFileIsNotComplete)
{
    if (!std::ofstream("/dev/full"))
        GTEST_SKIP() << "no device that is always full";
    ASSERT_TRUE(LgTrace::openFile("/dev/full"));
    LgTrace::print("no room for this");
    EXPECT_FALSE(LgTrace::closeFile());
}

TEST(LgTrace, LinesEndedBeforeAChangeGoToTheFormerOutput)
{
    TestLogger logger;
    CapturedLog const first;
    LgTrace::print("for the first");
    CapturedLog const second;
    LgTrace::print("for the second");
    logger.flush();
    EXPECT_EQ(first.getLines(), (Lines{"for the first\n"}));
    EXPECT_EQ(second.getLines(), (Lines{"for the second\n"}));
}

void writeAndTrace(void *context, char const *text, std::size_t length)
{
    static_cast<std::string *>(context)->append(text, length);
    LgTrace::print("from the output itself");
}

TEST(LgTrace, TracesOfTheOutputItselfAreDropped)
{
    std::string text;
    LgTrace::setOutput(writeAndTrace, &text);
    LgTrace::print("x");
    LgTrace::setOutput(nullptr, nullptr);
    EXPECT_EQ(text, "x\n");
}

} // namespace
} // namespace ZvTest

namespace ZvTest {

namespace {

Zv::TraceLevel *early = nullptr;

/// Runs before all static objects are constructed, including the library's own.
[[gnu::constructor(200)]] void registerEarly()
{
    early = Zv::Trace::registerLevel("early", __FILE__);
}

} // namespace

void tellOfLevels();

/// Writes for each level whether it is enabled. Runs in a child process whose environment names
/// levels.
void tellOfLevels()
{
    std::printf("early %d", early->isEnabled());
    for (char const *name : {"one", "two", "three", "four"})
        std::printf(", %s %d", name, Zv::Trace::registerLevel(name, __FILE__)->isEnabled());
}

TEST(TraceLevels, AreSwitchedByTheEnvironmentInItsOrder)
{
    setVariable("ZV_TRACE", "-two,early,one,,two,three,-three");
    std::string const some = ChildProcess({"--child", "levels"}).await().output;
    setVariable("ZV_TRACE", "*,-one");
    std::string const allButOne = ChildProcess({"--child", "levels"}).await().output;
    setVariable("ZV_TRACE", nullptr);
    EXPECT_EQ(some, "early 1, one 1, two 1, three 0, four 0");
    EXPECT_EQ(allButOne, "early 1, one 0, two 1, three 1, four 1");
}

} // namespace ZvTest
