#include "conformance/conformance.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Conformance {

namespace {

char const *presentTable = "";
std::string presentScene;

struct Code
{
    DWORD value;
    char const *name;
};

#define CODE(name)                                                                                 \
    {                                                                                              \
        name, #name                                                                                \
    }

constexpr Code CODES[] = {
    CODE(ERROR_SUCCESS),       CODE(ERROR_FILE_NOT_FOUND),    CODE(ERROR_PATH_NOT_FOUND),
    CODE(ERROR_ACCESS_DENIED), CODE(ERROR_INVALID_HANDLE),    CODE(ERROR_NOT_ENOUGH_MEMORY),
    CODE(ERROR_NOT_SUPPORTED), CODE(ERROR_INVALID_PARAMETER), CODE(ERROR_INSUFFICIENT_BUFFER),
    CODE(ERROR_INVALID_NAME),  CODE(ERROR_ALREADY_EXISTS),    CODE(ERROR_FILENAME_EXCED_RANGE),
    CODE(ERROR_NOT_OWNER),     CODE(ERROR_TOO_MANY_POSTS),    CODE(ERROR_INVALID_ADDRESS),
    CODE(ERROR_TIMEOUT)};

constexpr Code RESULTS[] = {CODE(WAIT_OBJECT_0), CODE(WAIT_ABANDONED), CODE(WAIT_TIMEOUT),
                            CODE(WAIT_FAILED)};

#undef CODE

template <std::size_t SIZE>
std::string nameOf(Code const (&codes)[SIZE], DWORD value)
{
    for (Code const &code : codes)
        if (code.value == value)
            return code.name;
    return std::to_string(value);
}

void print(std::string const &what, std::string const &result)
{
    std::printf("%s, %s: %s: %s\n", presentTable, presentScene.c_str(), what.c_str(),
                result.c_str());
    std::fflush(stdout);
}

void print(char const *call, std::string const &result, DWORD error)
{
    print(call, result + ", last error " +
                    (error == UNTOUCHED ? std::string("kept") : nameOf(CODES, error)));
}

DWORD runBody(void *body)
{
    return (*static_cast<std::function<DWORD()> *>(body))();
}

/// The form that the system calls. On Windows it has a calling convention of its own.
#ifdef _WIN32
DWORD WINAPI start(void *body)
{
    return runBody(body);
}
#else
constexpr auto start = runBody;
#endif

} // namespace

void table(char const *name)
{
    presentTable = name;
}

void scene(std::string const &name)
{
    presentScene = name;
}

BOOL showTruth(char const *call, bool result)
{
    DWORD const error = GetLastError();
    print(call, result ? "true" : "false", error);
    return result;
}

DWORD showWait(char const *call, DWORD result)
{
    DWORD const error = GetLastError();
    print(call, nameOf(RESULTS, result), error);
    return result;
}

HANDLE showHandle(char const *call, HANDLE result)
{
    DWORD const error = GetLastError();
    print(call, result ? "not null" : "null", error);
    return result;
}

void showNumber(char const *call, long long result)
{
    DWORD const error = GetLastError();
    print(call, std::to_string(result), error);
}

void showText(std::string const &what, std::string const &text)
{
    print(what, text);
}

void showCount(std::string const &what, long long count)
{
    print(what, std::to_string(count));
}

Runner::Runner(std::function<DWORD()> body)
    : _body(std::move(body)), _thread(CreateThread(nullptr, 0x10000, start, &_body, 0, &_number))
{
    if (!_thread) {
        showText("a thread", "cannot be made");
        std::exit(1);
    }
}

Runner::~Runner()
{
    join();
    CloseHandle(_thread);
}

DWORD Runner::exitCode() const
{
    DWORD code = 0;
    GetExitCodeThread(_thread, &code);
    return code;
}

void Runner::join() const
{
    await(_thread);
}

void elsewhere(std::function<void()> body)
{
    Runner runner([&] {
        body();
        return DWORD{0};
    });
}

void await(HANDLE handle)
{
    if (WaitForSingleObject(handle, LONG_TIME) != WAIT_TIMEOUT)
        return;
    showText("what was awaited", "does not come");
    std::_Exit(1);
}

void show()
{
    showMutexes();
    showEvents();
    showSemaphores();
    showTimers();
    showNames();
    showHandles();
    showThreads();
    showPriorities();
    showSlots();
    showSections();
    showAddresses();
    showMemory();
    showIdentifiers();
    showSystem();
    showTermination();
}

} // namespace Conformance
