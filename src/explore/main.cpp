// The `main` of explored programs.

#include "explore/commandLine.private.h"

int main(int argc, char **argv)
{
    using namespace Zv::Simulated;
    prepareProcess(argv);
    Nursery nursery;
    return runCommandLine(nursery, argc, argv, {argv[0], {}});
}
