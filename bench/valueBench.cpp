// Cost of copying a value and destroying the copy.

#include "resmgt/literals.h"
#include "resmgt/smartPtrs.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

namespace {

using namespace Zv;

char const SHORT_TEXT[] = "recorder";
char const LONG_TEXT[] = "recorder:transport:position of a device with a long name in a long text";

template <class Value>
void copy(benchmark::State &state, Value const &source)
{
    for (auto _ : state) {
        Value const value(source);
        benchmark::DoNotOptimize(&value);
        benchmark::ClobberMemory();
    }
}

template <class String>
void copyShortText(benchmark::State &state)
{
    copy(state, String(SHORT_TEXT));
}

template <class String>
void copyLongText(benchmark::State &state)
{
    copy(state, String(LONG_TEXT));
}

BENCHMARK(copyShortText<LiString>)->Name("shortText/LiString");
BENCHMARK(copyShortText<std::string>)->Name("shortText/std::string");
BENCHMARK(copyLongText<LiString>)->Name("longText/LiString");
BENCHMARK(copyLongText<std::string>)->Name("longText/std::string");

struct Counted : RCBase<LkCounter<long>>
{
    int value = 0;
};

struct Plain
{
    int value = 0;
};

void copyRCShdPtr(benchmark::State &state)
{
    copy(state, RCShdPtr<Counted>(new Counted));
}

void copySharedPtr(benchmark::State &state)
{
    copy(state, std::make_shared<Plain>());
}

BENCHMARK(copyRCShdPtr)->Name("pointer/RCShdPtr");
BENCHMARK(copySharedPtr)->Name("pointer/std::shared_ptr");

} // namespace
