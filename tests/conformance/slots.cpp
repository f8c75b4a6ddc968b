#include "conformance/conformance.h"

namespace Conformance {

namespace {

/// More slots than any system has.
constexpr DWORD BEYOND = 100000;

int values[2];
DWORD ending = 0, calledBy = 0;
int calls = 0;
void *calledWith = nullptr;

#ifdef _WIN32
void WINAPI onEnd(void *value)
#else
void onEnd(void *value)
#endif
{
    ++calls;
    calledWith = value;
    calledBy = GetCurrentThreadId();
}

void *valueOf(DWORD index)
{
    void * const value = TlsGetValue(index);
    DWORD const error = GetLastError();
    showText("TlsGetValue(index)", std::string(!value                ? "null"
                                               : value == &values[0] ? "what was stored"
                                                                     : "another value") +
                                       ", last error " + std::to_string(error));
    return value;
}

void showValues()
{
    scene("a slot");
    DWORD const index = TlsAlloc();
    showText("TlsAlloc()", index == TLS_OUT_OF_INDEXES ? "none" : "an index");
    SetLastError(UNTOUCHED);
    valueOf(index);
    TRUTH(TlsSetValue(index, &values[0]));
    SetLastError(UNTOUCHED);
    valueOf(index);
    elsewhere([&] {
        valueOf(index);
        TRUTH(TlsSetValue(index, &values[1]));
    });
    elsewhere([&] { valueOf(index); });
    valueOf(index);
    TRUTH(TlsSetValue(index, nullptr));
    valueOf(index);
    TRUTH(TlsFree(index));

    scene("a slot given out anew");
    DWORD const first = TlsAlloc();
    TlsSetValue(first, &values[0]);
    Owned const stored(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Owned const renewed(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Runner other([&] {
        TlsSetValue(first, &values[1]);
        SetEvent(stored);
        await(renewed);
        valueOf(first);
        return DWORD{0};
    });
    await(stored);
    TRUTH(TlsFree(first));
    DWORD const second = TlsAlloc();
    showText("it is the same index", second == first ? "yes" : "no");
    valueOf(second);
    SetEvent(renewed);
    other.join();
    TRUTH(TlsFree(second));
}

void showExhaustion()
{
    scene("slots exhausted");
    std::vector<DWORD> slots;
    DWORD index;
    SetLastError(UNTOUCHED);
    while ((index = TlsAlloc()) != TLS_OUT_OF_INDEXES && slots.size() < BEYOND) {
        slots.push_back(index);
        SetLastError(UNTOUCHED);
    }
    DWORD const error = GetLastError();
    showText("the last error in the end",
             error == ERROR_NO_MORE_ITEMS ? "ERROR_NO_MORE_ITEMS" : std::to_string(error));
    showText("as many as are promised", slots.size() >= TLS_MINIMUM_AVAILABLE ? "yes" : "no");
    showText("1088 at most", slots.size() <= 1088 ? "yes" : "no");
    std::size_t good = 0, empty = 0, kept = 0, freed = 0;
    for (DWORD slot : slots)
        good += TlsSetValue(slot, &values[0]) ? 1 : 0;
    elsewhere([&] {
        for (DWORD slot : slots)
            empty += TlsGetValue(slot) == nullptr;
    });
    for (DWORD slot : slots) {
        kept += TlsGetValue(slot) == &values[0];
        freed += TlsFree(slot) ? 1 : 0;
    }
    showText("all take a value", good == slots.size() ? "yes" : "no");
    showText("all are empty in another thread", empty == slots.size() ? "yes" : "no");
    showText("all keep it", kept == slots.size() ? "yes" : "no");
    showText("all are freed", freed == slots.size() ? "yes" : "no");
    index = TlsAlloc();
    showText("TlsAlloc() afterwards", index == TLS_OUT_OF_INDEXES ? "none" : "an index");
    TRUTH(TlsFree(index));
}

void showMisuse()
{
    scene("what is no slot");
    TRUTH(TlsSetValue(BEYOND, nullptr));
    TRUTH(TlsSetValue(TLS_OUT_OF_INDEXES, nullptr));
    TRUTH(TlsGetValue(BEYOND));
    TRUTH(TlsGetValue(TLS_OUT_OF_INDEXES));
    TRUTH(TlsFree(BEYOND));
    TRUTH(TlsFree(TLS_OUT_OF_INDEXES));
    scene("a slot freed twice");
    DWORD const index = TlsAlloc();
    TRUTH(TlsFree(index));
    TRUTH(TlsFree(index));
}

void showCallbacks()
{
    scene("a slot with a callback");
    ending = FlsAlloc(onEnd);
    showText("FlsAlloc(onEnd)", ending == FLS_OUT_OF_INDEXES ? "none" : "an index");
    DWORD number = 0;
    {
        Runner t([] {
            TRUTH(FlsSetValue(ending, &values[0]));
            showCount("calls", calls);
            return DWORD{0};
        });
        number = t.number();
    }
    showCount("calls", calls);
    showText("with", calledWith == &values[0] ? "what was stored" : "something else");
    showText("by", calledBy == number ? "the thread itself" : "another");
    elsewhere([] {});
    showCount("calls after a thread that has stored nothing", calls);
    elsewhere([] {
        TRUTH(FlsSetValue(ending, &values[0]));
        TRUTH(FlsSetValue(ending, nullptr));
    });
    showCount("calls after a thread that has stored null in the end", calls);
    Owned const begun(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Owned const never(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    {
        Runner victim([&] {
            FlsSetValue(ending, &values[0]);
            SetEvent(begun);
            return WaitForSingleObject(never, INFINITE);
        });
        await(begun);
        TerminateThread(victim.handle(), 0);
    }
    showCount("calls after a thread that was killed", calls);
    TRUTH(FlsSetValue(BEYOND, nullptr));
    TRUTH(FlsSetValue(FLS_OUT_OF_INDEXES, nullptr));
}

} // namespace

void showSlots()
{
    table("slot");
    showValues();
    showExhaustion();
    showMisuse();
    showCallbacks();
}

} // namespace Conformance
