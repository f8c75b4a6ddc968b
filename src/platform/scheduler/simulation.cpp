#include "platform/scheduler/plainData.h"
#include "platform/scheduler/scheduler.h"
#include "platform/scheduler/sharedWords.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <unistd.h>

namespace ZvPlatform::Simulated {

namespace {

/// Additional stack for the C library, a sanitizer and the scheduler.
constexpr std::size_t STACK_OVERHEAD = 512 * 1024;

constinit thread_local Task *mine __attribute__((tls_model("initial-exec"))) = nullptr;
constinit bool hasFirst = false;

struct GivenName
{
    void const *object;
    std::uint32_t serial; ///< of the object, because a later object may have its address
    char const *name;
};
constinit GivenName givenNames[256] = {};
constinit unsigned nbGivenNames = 0;

void adopt()
{
    // Only the first thread, which loads the program, is adopted.
    if (hasFirst) {
        if (scheduler.isRunning())
            find("foreign thread", "a thread that the layer has not made calls a service");
        std::fputs("a thread that the layer has not made calls a service\n", stderr);
        std::abort();
    }
    hasFirst = true;
    mine = self = &adoptFirst();
    mine->bearer = &Bearer::current();
}

[[noreturn]] void findException(char const *finding)
{
    try {
        std::rethrow_exception(std::current_exception());
    } catch (std::exception const &exception) {
        find(finding, "%s ends with an exception: %s", self->name, exception.what());
    } catch (...) {
        find(finding, "%s ends with an exception", self->name);
    }
}

[[noreturn]] void onTerminate()
{
    if (std::current_exception())
        findException("terminate");
    find("terminate", "%s ends the program", self ? self->name : "a thread");
}

void run(void *data)
{
    Task &task = *static_cast<Task *>(data);
    mine = &task;
    scheduler.receive();
    plainData.forgetStack(Bearer::current().getStackSize());
    try {
        execute(task);
    } catch (...) {
        findException("exception");
    }
    scheduler.leave();
}

} // namespace

Task &currentTask()
{
    if (!mine) [[unlikely]]
        adopt();
    return *mine;
}

bool Scheduler::start(Task &task, std::size_t stackSize)
{
    if (stackSize > SIZE_MAX / 8)
        return false;
    if (!isRunning()) {
        // A program that has not called `begin` runs under the default options.
        static Record record;
        begin({}, record);
    }
    weakMemory.start(indexOf(task), indexOf(currentTask()));
    std::size_t const page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    task.bearer = Bearer::create((stackSize + STACK_OVERHEAD + page - 1) / page * page, run, &task);
    if (!task.bearer)
        return false;
    if (_record)
        ++_record->threads;
    return true;
}

void begin(Options const &options, Record &record)
{
    // The calling thread takes the place of the thread that has loaded the program.
    if (hasFirst) {
        mine = self;
        mine->bearer = &Bearer::current();
        tookPlace();
    }
    scheduler.begin(options, record);
    std::set_terminate(onTerminate);
}

void end(LeftOver leftOver)
{
    scheduler.end(leftOver);
}

bool isRunning()
{
    return scheduler.isRunning();
}

bool isRefused(Resource resource)
{
    return scheduler.isRefused(resource);
}

std::uint32_t getNbObjects()
{
    return countObjects();
}

std::int64_t getTime()
{
    return scheduler.now();
}

MayBeRefused::MayBeRefused()
{
    scheduler.allowRefusals(1);
}

MayBeRefused::~MayBeRefused()
{
    scheduler.allowRefusals(-1);
}

void step(char const *what)
{
    enter(what);
}

void find(char const *finding, char const *format, ...)
{
    static char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    scheduler.report(finding, text);
}

WaitingFor::WaitingFor(char const *what, Condition condition, void const *data)
    : _what(what), _condition(condition), _data(data), _outer(currentTask().stated)
{
    currentTask().stated = this;
}

WaitingFor::~WaitingFor()
{
    currentTask().stated = _outer;
}

// ---- Names.

void setName(void const *object, char const *name)
{
    if (nbGivenNames == sizeof givenNames / sizeof givenNames[0])
        return;
    givenNames[nbGivenNames++] = {object, serialOf(object), name};
}

char const *nameOf(void const *object)
{
    std::uint32_t const number = serialOf(object);
    for (unsigned i = nbGivenNames; i-- > 0;)
        if (givenNames[i].object == object && givenNames[i].serial == number)
            return givenNames[i].name;
    return ownNameOf(object);
}

} // namespace ZvPlatform::Simulated
