#include "zvbase/inPackage.h"

#include <gtest/gtest.h>

#include <cstring>

#ifdef _WIN32
#include <cstdio>
#include <cstdlib>
#include <windows.h>

namespace {

LPTOP_LEVEL_EXCEPTION_FILTER languageFilter = nullptr;

/// Ends the process with a special code. Otherwise a debugger might start by itself, and the
/// process might seem to have succeeded.
LONG WINAPI endWithTheException(EXCEPTION_POINTERS *pointers)
{
    // The C++ runtime's filter handles C++ exceptions, which end in std::terminate.
    if (languageFilter && languageFilter(pointers) == EXCEPTION_CONTINUE_EXECUTION)
        return EXCEPTION_CONTINUE_EXECUTION;
    char text[64];
    int const size = std::snprintf(text, sizeof text, "ends with the exception 0x%08lX\n",
                                   pointers->ExceptionRecord->ExceptionCode);
    DWORD written = 0;
    ::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), text, static_cast<DWORD>(size), &written,
                nullptr);
    ::TerminateProcess(::GetCurrentProcess(), 128 + 11);
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace

#endif

/// Main function of a child process, which a test program may define. A test starts the program
/// with "--child" and the arguments of the child. The libraries are loaded, and no package is up.
int zvChildMain(int argc, char **argv) __attribute__((weak));

int main(int argc, char **argv)
{
#ifdef _WIN32
    languageFilter = ::SetUnhandledExceptionFilter(endWithTheException);
    // Errors are written and end the process. Windows must not show a message box.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    ::_set_error_mode(_OUT_TO_STDERR);
#endif
    if (zvChildMain && argc > 1 && std::strcmp(argv[1], "--child") == 0)
        return zvChildMain(argc - 2, argv + 2);
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // because the children make threads
    testing::InitGoogleTest(&argc, argv);
    Zv::InPackageScope packages;
    return RUN_ALL_TESTS();
}
