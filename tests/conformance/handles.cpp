#include "conformance/conformance.h"

namespace Conformance {

namespace {

void showMisuse()
{
    scene("what is no handle");
    WAIT(WaitForSingleObject(nullptr, 0));
    WAIT(WaitForSingleObject(nullptr, 5));
    WAIT(WaitForSingleObject(nullptr, INFINITE));
    WAIT(WaitForSingleObjectEx(nullptr, 5, FALSE));
    TRUTH(CloseHandle(nullptr));

    scene("the fixed handles of the process and the thread");
    TRUTH(CloseHandle(GetCurrentProcess()));
    TRUTH(CloseHandle(GetCurrentThread()));
    WAIT(WaitForSingleObject(GetCurrentProcess(), 0));
    WAIT(WaitForSingleObject(GetCurrentProcess(), 1));
    WAIT(WaitForSingleObject(GetCurrentThread(), 0));
    WAIT(WaitForSingleObject(GetCurrentThread(), 1));
    showText("GetCurrentProcess()", GetCurrentProcess() == badHandle() ? "-1" : "something else");
    showText("GetCurrentThread()", GetCurrentThread() == reinterpret_cast<HANDLE>(std::intptr_t{-2})
                                       ? "-2"
                                       : "something else");
}

void showDuplicates()
{
    HANDLE const process = GetCurrentProcess();
    scene("a duplicate");
    HANDLE const source = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    HANDLE copy = nullptr, moved = nullptr;
    TRUTH(DuplicateHandle(process, source, process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS));
    WAIT(WaitForSingleObject(copy, 0));
    TRUTH(ResetEvent(copy));
    WAIT(WaitForSingleObject(source, 0));
    TRUTH(SetEvent(source));
    TRUTH(CloseHandle(source));
    WAIT(WaitForSingleObject(copy, 0));

    scene("a duplicate that takes its source's place");
    TRUTH(DuplicateHandle(process, copy, process, &moved, 0, FALSE,
                          DUPLICATE_SAME_ACCESS | DUPLICATE_CLOSE_SOURCE));
    WAIT(WaitForSingleObject(moved, 0));
    TRUTH(CloseHandle(moved));
    TRUTH(CloseHandle(moved));

    scene("a duplicate of the fixed handle of the thread");
    HANDLE self = nullptr, again = nullptr;
    TRUTH(DuplicateHandle(process, GetCurrentThread(), process, &self, 0, FALSE,
                          DUPLICATE_SAME_ACCESS));
    WAIT(WaitForSingleObject(self, 0));
    elsewhere([&] { WAIT(WaitForSingleObject(self, 1)); });
    TRUTH(DuplicateHandle(process, self, process, &again, 0, FALSE, DUPLICATE_SAME_ACCESS));
    TRUTH(CloseHandle(self));
    WAIT(WaitForSingleObject(again, 0));
    TRUTH(CloseHandle(again));

    scene("a thread's own duplicate, after its end");
    HANDLE left = nullptr;
    elsewhere([&] {
        TRUTH(DuplicateHandle(process, GetCurrentThread(), process, &left, 0, FALSE,
                              DUPLICATE_SAME_ACCESS));
    });
    WAIT(WaitForSingleObject(left, LONG_TIME));
    TRUTH(CloseHandle(left));

    scene("duplicates that cannot be");
    Owned const e(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    TRUTH(DuplicateHandle(e, e, process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS));
    TRUTH(DuplicateHandle(process, e, nullptr, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS));
    TRUTH(DuplicateHandle(process, nullptr, process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS));
}

} // namespace

void showHandles()
{
    table("handle");
    showMisuse();
    showDuplicates();
}

} // namespace Conformance
