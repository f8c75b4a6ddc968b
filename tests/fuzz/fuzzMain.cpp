// Main program of a fuzzing target: passes the only target to libFuzzer.

#include "fuzzing.h"

#include "zvbase/inPackage.h"

std::map<std::string, ZvTest::Body> &ZvTest::targets()
{
    static auto &all = *new std::map<std::string, Body>;
    return all;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***);
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    static auto const * const packages = new Zv::InPackageScope;
    return packages ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    ZvTest::targets().begin()->second(data, size);
    return 0;
}
