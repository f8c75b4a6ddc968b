#include "zvbase/inPackage.h"

#include <gtest/gtest.h>

#include <cstring>

#ifdef _WIN32
#include <cstdio>
#include <cstdlib>
#include <windows.h>

namespace {

LPTOP_LEVEL_EXCEPTION_FILTER languageFilter = nullptr;

/// Ends the process with a code of its own. Else a debugger would come by itself, after which all may seem well.
LONG WINAPI endWithTheException(EXCEPTION_POINTERS *pointers)
{
    // It continues what is C++'s own, which has its end in std::terminate.
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

/// What a test program does as a process of its own: a test of the program starts it with "--child" and what else the
/// child needs. It finds the libraries loaded and no package up. Where a test program defines it.
int zvChildMain(int argc, char **argv) __attribute__((weak));

int main(int argc, char **argv)
{
#ifdef _WIN32
    languageFilter = ::SetUnhandledExceptionFilter(endWithTheException);
    // What goes wrong is written and ends the process: nobody sits there to answer a window.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    ::_set_error_mode(_OUT_TO_STDERR);
#endif
    if (zvChildMain && argc > 1 && std::strcmp(argv[1], "--child") == 0)
        return zvChildMain(argc - 2, argv + 2);
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // the children make threads
    testing::InitGoogleTest(&argc, argv);
    Zv::InPackageScope packages;
    return RUN_ALL_TESTS();
}
