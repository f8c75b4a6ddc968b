#include "conformance/conformance.h"
#include "zvbase/platform/shared.h"

namespace Conformance {

using ZvPlatform::Order;
using ZvPlatform::Shared;

namespace {

constexpr char const *KINDS[] = {"mutex", "event", "semaphore", "timer"};
constexpr int NB_KINDS = 4;

HANDLE create(int kind, std::string const &name)
{
    switch (kind) {
    case 0:
        return CreateMutexA(nullptr, FALSE, name.c_str());
    case 1:
        return CreateEventA(nullptr, TRUE, FALSE, name.c_str());
    case 2:
        return CreateSemaphoreA(nullptr, 0, 10, name.c_str());
    default:
        return CreateWaitableTimerA(nullptr, TRUE, name.c_str());
    }
}

/// A name that no other run uses.
std::string nameFor(char const *what)
{
    return std::string("zv conformance/") + what + ' ' + std::to_string(GetCurrentProcessId());
}

void showLives(int kind)
{
    std::string const of = std::string(" of a ") + KINDS[kind];
    std::string const name = nameFor("life");
    scene("the life" + of);
    HANDLE const first = MADE(create(kind, name));
    HANDLE const second = MADE(create(kind, name));
    TRUTH(CloseHandle(first));
    HANDLE const third = MADE(create(kind, name));
    TRUTH(CloseHandle(second));
    TRUTH(CloseHandle(third));
    HANDLE const anew = MADE(create(kind, name));
    TRUTH(CloseHandle(anew));

    scene("case" + of);
    Owned const lower(MADE(create(kind, nameFor("case"))));
    Owned const upper(MADE(create(kind, nameFor("CASE"))));

    scene("names that cannot be" + of);
    std::string const stem = nameFor("long");
    std::string const longest = stem + std::string(MAX_PATH - 1 - stem.size(), 'n');
    std::string const tooLong = longest + 'n';
    Owned const good(MADE(create(kind, longest)));
    Owned const again(MADE(create(kind, longest)));
    MADE(create(kind, tooLong));
    MADE(create(kind, "no such folder\\name"));
    Owned const empty(MADE(create(kind, ""))), alsoEmpty(MADE(create(kind, "")));

    for (int other = 0; other < NB_KINDS; ++other)
        if (other != kind) {
            scene(std::string("the name of a ") + KINDS[other] + " that is wanted for a " +
                  KINDS[kind]);
            Owned const present(create(other, name));
            MADE(create(kind, name));
        }
}

void showWhatStays()
{
    std::string const name = nameFor("stays");
    char const * const text = name.c_str();
    {
        scene("an event that exists keeps its kind and state");
        Owned const first(MADE(CreateEventA(nullptr, TRUE, FALSE, text)));
        Owned const second(MADE(CreateEventA(nullptr, FALSE, TRUE, text)));
        WAIT(WaitForSingleObject(second, 0));
        TRUTH(SetEvent(first));
        WAIT(WaitForSingleObject(second, 0));
        WAIT(WaitForSingleObject(second, 0));
        TRUTH(PulseEvent(second));
        WAIT(WaitForSingleObject(first, 0));
    }
    {
        scene("a mutex that exists is not owned by the thread that opens it");
        Owned const first(MADE(CreateMutexA(nullptr, FALSE, text)));
        Owned const second(MADE(CreateMutexA(nullptr, TRUE, text)));
        elsewhere([&] {
            WAIT(WaitForSingleObject(first, 0));
            TRUTH(ReleaseMutex(second));
        });
        TRUTH(ReleaseMutex(first));
    }
    {
        scene("a mutex that is owned from the beginning");
        Owned const first(MADE(CreateMutexA(nullptr, TRUE, text)));
        elsewhere([&] {
            Owned const second(MADE(CreateMutexA(nullptr, TRUE, text)));
            WAIT(WaitForSingleObject(second, 0));
            TRUTH(ReleaseMutex(second));
        });
        TRUTH(ReleaseMutex(first));
    }
    {
        scene("a semaphore that exists keeps its counts");
        LONG previous = -1;
        Owned const first(MADE(CreateSemaphoreA(nullptr, 1, 2, text)));
        Owned const second(MADE(CreateSemaphoreA(nullptr, 5, 9, text)));
        TRUTH(ReleaseSemaphore(second, 1, &previous));
        showCount("previous", previous);
        TRUTH(ReleaseSemaphore(second, 1, nullptr));
        WAIT(WaitForSingleObject(first, 0));
        WAIT(WaitForSingleObject(second, 0));
        WAIT(WaitForSingleObject(first, 0));
        WAIT(WaitForSingleObject(second, 1));
        MADE(CreateSemaphoreA(nullptr, -1, 2, text));
        MADE(CreateSemaphoreA(nullptr, 3, 2, text));
        TRUTH(ReleaseSemaphore(first, 0, nullptr));
        TRUTH(ReleaseMutex(first));
        elsewhere([&] { TRUTH(ReleaseSemaphore(second, 1, nullptr)); });
        WAIT(WaitForSingleObject(first, INFINITE));
    }
}

void showPrefixes()
{
    std::string const name = nameFor("prefix");
    for (int kind = 0; kind < NB_KINDS; ++kind) {
        scene(std::string("prefixes of the name of a ") + KINDS[kind]);
        Owned const plain(MADE(create(kind, name)));
        Owned const local(MADE(create(kind, "Local\\" + name)));
        Owned const global(MADE(create(kind, "Global\\" + name)));
        Owned const again(MADE(create(kind, "Global\\" + name)));
        MADE(create(kind, "Local\\no such folder\\" + name));
        MADE(create(kind, "Global\\no such folder\\" + name));
    }
    scene("prefixes when a semaphore is opened");
    MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, ("Local\\" + name).c_str()));
    MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, ("Global\\" + name).c_str()));
    Owned const present(MADE(CreateSemaphoreA(nullptr, 1, 1, ("Local\\" + name).c_str())));
    Owned const found(MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str())));
    WAIT(WaitForSingleObject(found, 0));
    WAIT(WaitForSingleObject(present, 0));
}

void showOpening()
{
    scene("opening a semaphore");
    std::string const name = nameFor("open");
    char const * const text = name.c_str();
    MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, text));
    {
        Owned const first(MADE(CreateSemaphoreA(nullptr, 1, 2, text)));
        Owned const second(MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, text)));
        Owned const inherited(MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, TRUE, text)));
        WAIT(WaitForSingleObject(second, 0));
        WAIT(WaitForSingleObject(first, 0));
        TRUTH(ReleaseSemaphore(inherited, 2, nullptr));
        TRUTH(ReleaseSemaphore(first, 1, nullptr));
    }
    MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, text));
    MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, nullptr));
    MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, ""));
    MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, "no such folder\\name"));
    std::string const tooLong(MAX_PATH, 'n');
    MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, tooLong.c_str()));
    for (int kind : {0, 1, 3}) {
        scene(std::string("opening a ") + KINDS[kind] + " as a semaphore");
        Owned const present(create(kind, name));
        MADE(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, text));
    }
}

void showRaces()
{
    constexpr int ROUNDS = 5, THREADS = 3;
    std::string const name = nameFor("race");
    for (int kind = 0; kind < NB_KINDS; ++kind) {
        scene(std::string("three threads that create one ") + KINDS[kind]);
        Shared<int> made, found;
        for (int round = 0; round < ROUNDS; ++round) {
            Owned const go(CreateEventA(nullptr, TRUE, FALSE, nullptr));
            Owned const done(CreateEventA(nullptr, TRUE, FALSE, nullptr));
            Owned const had(CreateSemaphoreA(nullptr, 0, THREADS, nullptr));
            std::vector<std::unique_ptr<Runner>> runners;
            for (int i = 0; i < THREADS; ++i)
                runners.push_back(std::make_unique<Runner>([&] {
                    await(go);
                    Owned const mine(create(kind, name));
                    bool const isFound = GetLastError() == ERROR_ALREADY_EXISTS;
                    (isFound ? found : made).fetch_add(1, Order::SEQ_CST);
                    ReleaseSemaphore(had, 1, nullptr);
                    await(done);
                    return DWORD{0};
                }));
            SetEvent(go);
            for (int i = 0; i < THREADS; ++i)
                await(had);
            SetEvent(done);
        }
        showCount("made in five rounds", made.load(Order::SEQ_CST));
        showCount("found in five rounds", found.load(Order::SEQ_CST));
    }
}

} // namespace

void showNames()
{
    table("name");
    for (int kind = 0; kind < NB_KINDS; ++kind)
        showLives(kind);
    showPrefixes();
    showWhatStays();
    showOpening();
    showRaces();
}

} // namespace Conformance
