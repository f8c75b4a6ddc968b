#include "zvbase/inPackage.h"

#include <gtest/gtest.h>

#include <cstring>

#ifdef _WIN32
#include <cstdlib>
#include <windows.h>
#endif

/// What a test program does as a process of its own: a test of the program starts it with "--child" and what else the
/// child needs. It finds the libraries loaded and no package up. Where a test program defines it.
int zvChildMain(int argc, char **argv) __attribute__((weak));

int main(int argc, char **argv)
{
#ifdef _WIN32
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
