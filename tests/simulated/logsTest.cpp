// Lines of several threads in the log.
#include "simulated/scenario.h"

#include "resmgt/threads.h"
#include "zvbase/inPackage.h"
#include "zvbase/lgLine.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgTrace.h"

#include <string>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

constexpr Settings WITH_PACKAGES = {.bound = 100'000, .hasty = false, .leftOver = {64, 0}};

void append(void *output, char const *text, std::size_t length)
{
    static_cast<std::string *>(output)->append(text, length);
}

void writeLine(char const *text)
{
    LgLine line;
    line.begin(__FILE__, __LINE__) << text;
}

} // namespace

/// A reader that does not see that a line has been announced must not write a later one. Each
/// thread has written a line before, because its first one takes a lock that the reader takes, too.
SIMULATED(LinesAreInTheOrderOfTheirTimes, WITH_PACKAGES)
{
    static std::string output;
    output.clear();
    LgTrace::setOutput(append, &output);
    HANDLE const written = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    {
        InPackageScope const packages;
        Worker early("early", [&] {
            writeLine("a line");
            ::Sleep(2);
            writeLine("first line");
            ::SetEvent(written);
        });
        Worker late("late", [&] {
            writeLine("a line");
            ::WaitForSingleObject(written, INFINITE);
            ::Sleep(1);
            writeLine("second line");
        });
        ::Sleep(4);
        LgLog::flush();
    }
    LgTrace::setOutput(nullptr, nullptr);
    ::CloseHandle(written);
    HOLDS(output.find("first line") < output.find("second line"));
    HOLDS(output.find("second line") != output.npos);
}
