#include "resmgt/locks/mtUtil.h"

#include "platform/services.h"
#include "resmgt/locks/locksStatics.private.h"
#include "zvbase/envVar.h"
#include "zvbase/failures.h"
#include "zvbase/lgTrace.h"
#include "zvbase/trace.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Zv {

namespace {

constexpr std::size_t NAME_WIDTH = 40;
constexpr std::size_t LINE_SIZE = 256;

/// Text of lines, each with a name and a value.
class SysConfReport
{
public:
    void title(char const *text) { _text += text; }
    void number(char const *name, WORD value) { line("%-40s %10d\n", name, int{value}); }
    void number(char const *name, long value) { line("%-40s %10ld\n", name, value); }
    void address(char const *name, void const *value) { line("%-40s %p\n", name, value); }
    void text(char const *name, char const *value)
    {
        ZV_ASSERT(NAME_WIDTH + 1 + std::strlen( value ) + 1 < LINE_SIZE);
        line("%-40s %s\n", name, value);
    }
    char const *getText() const { return _text.c_str(); }

private:
    template <class Value>
    void line(char const *format, char const *name, Value value)
    {
        char buffer[LINE_SIZE];
        std::snprintf(buffer, sizeof buffer, format, name, value);
        _text += buffer;
    }

    std::string _text;
};

void reportSystem(SysConfReport &report)
{
    SYSTEM_INFO info;
    ::GetSystemInfo(&info);
    report.title("System Info\n");
    report.number("ProcessorArchitecture", info.wProcessorArchitecture);
    report.number("PageSize", static_cast<long>(info.dwPageSize));
    report.address("MinimumApplicationAddress", info.lpMinimumApplicationAddress);
    report.address("MaximumApplicationAddress", info.lpMaximumApplicationAddress);
    report.number("ActiveProcessorMask", static_cast<long>(info.dwActiveProcessorMask));
    report.number("NumberOfProcessors", static_cast<long>(info.dwNumberOfProcessors));
    report.number("ProcessorType", static_cast<long>(info.dwProcessorType));
    report.number("AllocationGranularity", static_cast<long>(info.dwAllocationGranularity));
    report.number("ProcessorLevel", info.wProcessorLevel);
    report.number("ProcessorRevision", info.wProcessorRevision);
}

void reportVersion(SysConfReport &report)
{
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof version;
    ::GetVersionExA(&version);
    report.title("OS Version\n");
    report.number("dwMajorVersion", static_cast<long>(version.dwMajorVersion));
    report.number("dwMinorVersion", static_cast<long>(version.dwMinorVersion));
    report.number("dwBuildNumber", static_cast<long>(version.dwBuildNumber));
    report.number("dwPlatformId", static_cast<long>(version.dwPlatformId));
    report.text("CSDVersion", version.szCSDVersion);
}

std::string scratchFileName()
{
    std::string folder = EnvVar::getEnv("TMPDIR");
#ifdef _WIN32
    if (folder.empty())
        folder = EnvVar::getEnv("TEMP");
#endif
    return (folder.empty() ? "/tmp" : folder) + "/blaXXXXXX";
}

/// Returns true if the last write failed because the memory could not be read.
bool wasUnreadable()
{
#ifdef _WIN32
    // The C library has no error number of its own for this.
    DWORD const error = ::GetLastError();
    if (error == ERROR_INVALID_USER_BUFFER || error == ERROR_NOACCESS)
        return true;
#endif
    return errno == EFAULT;
}

/// Writes all bytes to the file. Returns 1, or 0 if they cannot be read, or -1 after another
/// failure.
int writeAll(int file, char const *from, int size)
{
    while (size > 0) {
        ssize_t const written = ::write(file, from, static_cast<std::size_t>(size));
        if (written >= 0) {
            from += written;
            size -= static_cast<int>(written);
        } else if (wasUnreadable()) {
            return 0;
        } else if (errno != EINTR) {
            std::perror("testWritable");
            return -1;
        }
    }
    return 1;
}

} // namespace

int MtUtil::getNbProcessors()
{
    SYSTEM_INFO info;
    ::GetSystemInfo(&info);
    return static_cast<int>(info.dwNumberOfProcessors);
}

void MtUtil::yield()
{
    ::Sleep(0);
}

void MtUtil::lockProcessMemory()
{
    ZV_TRACE(lockUtilTraceLevel, "Process memory not locked, not available under NT4.0.");
}

void MtUtil::printSysConf()
{
    SysConfReport report;
    reportSystem(report);
    reportVersion(report);
    report.title("Other Info\n");
    report.number("TLS_MINIMUM_AVAILABLE", static_cast<long>(TLS_MINIMUM_AVAILABLE));
    report.number("CLOCKS_PER_SEC", 1000L);
    LgTrace::print(report.getText());
}

int MtUtil::testWritable(void const *address, int size)
{
    std::string name = scratchFileName();
    int const file = ::mkstemp(name.data());
    if (file < 0)
        return 0;
    int const result = writeAll(file, static_cast<char const *>(address), size);
    if (::close(file) != 0)
        std::perror("testWritable close");
    if (::chmod(name.c_str(), S_IRUSR | S_IWUSR) != 0)
        std::perror("testWritable chmod");
    ::unlink(name.c_str());
    return result;
}

} // namespace Zv
