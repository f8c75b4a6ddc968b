// A fuzzing target: a body for arbitrary bytes, which aborts where something is not as it has to be.
//
//     ZV_FUZZ(date) { ... data, size ... }
//
// Built for fuzzing, each source is a program of libFuzzer's. Built as a test, all of them are one program that replays
// the texts of `corpus/`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace ZvFuzz {

using Body = void (*)(std::uint8_t const *data, std::size_t size);

/// The targets of this program.
std::map<std::string, Body> &targets();

struct Registration
{
    Registration(char const *name, Body body) { targets()[name] = body; }
};

/// Ends the process where a property does not hold.
inline void check(bool holds, char const *property)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", property);
    std::abort();
}

} // namespace ZvFuzz

#define ZV_FUZZ_CHECK(...) ::ZvFuzz::check(static_cast<bool>(__VA_ARGS__), #__VA_ARGS__)

#define ZV_FUZZ(name)                                                                              \
    static void name##Body(std::uint8_t const *data, std::size_t size);                            \
    static ::ZvFuzz::Registration const name##Registration(#name, name##Body);                     \
    static void name##Body(std::uint8_t const *data, std::size_t size)
