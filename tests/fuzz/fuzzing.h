// Fuzzing target: a body that gets arbitrary bytes and aborts if a property does not hold.
//
//     ZV_FUZZ(date) { ... data, size ... }
//
// In a build for fuzzing, each source is a program of libFuzzer. In a build of the tests, all
// sources are one program that replays the texts of `corpus/`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace ZvTest {

using Body = void (*)(std::uint8_t const *data, std::size_t size);

/// Returns the targets of this program by name.
std::map<std::string, Body> &targets();

struct Registration
{
    Registration(char const *name, Body body) { targets()[name] = body; }
};

/// Aborts the process if a property does not hold.
inline void check(bool holds, char const *property)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", property);
    std::abort();
}

} // namespace ZvTest

#define ZV_FUZZ_CHECK(...) ::ZvTest::check(static_cast<bool>(__VA_ARGS__), #__VA_ARGS__)

#define ZV_FUZZ(name)                                                                              \
    static void name##Body(std::uint8_t const *data, std::size_t size);                            \
    static ::ZvTest::Registration const name##Registration(#name, name##Body);                     \
    static void name##Body(std::uint8_t const *data, std::size_t size)
