#include "conformance/conformance.h"

#include <algorithm>

namespace Conformance {

namespace {

SYSTEM_INFO information()
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info;
}

bool isZero(char const *memory, SIZE_T size)
{
    return std::all_of(memory, memory + size, [](char c) { return c == 0; });
}

void showUse(SIZE_T page)
{
    scene("committed at once");
    SIZE_T const granularity = information().dwAllocationGranularity;
    auto *memory = static_cast<char *>(
        MADE(VirtualAlloc(nullptr, page + 1, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE)));
    showText("where reservations begin",
             reinterpret_cast<std::uintptr_t>(memory) % granularity == 0 ? "yes" : "no");
    showText("whole pages of zeros", isZero(memory, 2 * page) ? "yes" : "no");
    std::fill_n(memory, 2 * page, '\1');
    TRUTH(VirtualFree(memory, 0, MEM_RELEASE));
    TRUTH(VirtualFree(memory, 0, MEM_RELEASE));

    scene("committed without an address");
    memory = static_cast<char *>(MADE(VirtualAlloc(nullptr, 1, MEM_COMMIT, PAGE_READWRITE)));
    *memory = 1;
    TRUTH(VirtualFree(memory, 0, MEM_RELEASE));

    scene("committed in parts");
    memory = static_cast<char *>(MADE(VirtualAlloc(nullptr, 8 * page, MEM_RESERVE, PAGE_NOACCESS)));
    // The pages from that of the first byte to that of the last.
    TRUTH(VirtualAlloc(memory + page + 1, page, MEM_COMMIT, PAGE_READWRITE) == memory + page);
    showText("two pages of zeros", isZero(memory + page, 2 * page) ? "yes" : "no");
    std::fill_n(memory + page, 2 * page, '\7');
    TRUTH(VirtualAlloc(memory + page, page, MEM_COMMIT, PAGE_READWRITE) == memory + page);
    showCount("what was in it", memory[page]);
    TRUTH(VirtualFree(memory + page, page, MEM_DECOMMIT));
    showCount("what is beside it", memory[2 * page]);
    TRUTH(VirtualAlloc(memory + page, page, MEM_COMMIT, PAGE_READWRITE) == memory + page);
    showText("it is of zeros again", isZero(memory + page, page) ? "yes" : "no");
    TRUTH(VirtualFree(memory, 0, MEM_DECOMMIT));
    TRUTH(VirtualFree(memory, 0, MEM_RELEASE));

    scene("at an address");
    void *there = MADE(VirtualAlloc(nullptr, 4 * page, MEM_RESERVE, PAGE_NOACCESS));
    TRUTH(VirtualAlloc(there, page, MEM_RESERVE, PAGE_NOACCESS));
    TRUTH(VirtualFree(there, 0, MEM_RELEASE));
    TRUTH(VirtualAlloc(there, 4 * page, MEM_RESERVE, PAGE_NOACCESS) == there);
    TRUTH(VirtualFree(there, 0, MEM_RELEASE));
}

void showMisuse(SIZE_T page)
{
    scene("what cannot be had");
    MADE(VirtualAlloc(nullptr, 0, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    MADE(VirtualAlloc(nullptr, page, 0, PAGE_READWRITE));
    MADE(VirtualAlloc(nullptr, page, MEM_RELEASE, PAGE_READWRITE));
    MADE(VirtualAlloc(nullptr, page, MEM_RESERVE, 0));
    int onStack = 0;
    MADE(VirtualAlloc(&onStack, page, MEM_RESERVE, PAGE_READWRITE));

    scene("what cannot be done");
    auto *memory = static_cast<char *>(VirtualAlloc(nullptr, 4 * page, MEM_RESERVE, PAGE_NOACCESS));
    MADE(VirtualAlloc(memory + 3 * page, 64 * page, MEM_COMMIT, PAGE_READWRITE));
    TRUTH(VirtualFree(memory, 4 * page, MEM_RELEASE));
    TRUTH(VirtualFree(memory, 0, MEM_RELEASE | MEM_DECOMMIT));
    TRUTH(VirtualFree(memory, 0, 0));
    TRUTH(VirtualFree(memory + page, 0, MEM_RELEASE));
    TRUTH(VirtualFree(memory + 3 * page, 64 * page, MEM_DECOMMIT));
    TRUTH(VirtualFree(memory, 0, MEM_RELEASE));
}

} // namespace

void showMemory()
{
    table("memory");
    SIZE_T const page = information().dwPageSize;
    showUse(page);
    showMisuse(page);
}

} // namespace Conformance
