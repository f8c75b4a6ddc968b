#include "platform/simulated/scheduler.h"
#include "platform/simulated/sharedWords.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <unistd.h>

namespace ZvPlatform::Simulated {

constinit Thread *self = nullptr;

namespace {

constexpr std::size_t DEFAULT_STACK = 1024 * 1024;
/// Additional stack for the C library, a sanitizer and the scheduler.
constexpr std::size_t STACK_OVERHEAD = 512 * 1024;

constinit thread_local Thread *mine __attribute__((tls_model("initial-exec"))) = nullptr;
constinit bool hasFirst = false;

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
    mine = self = scheduler.newThread();
    mine->pthread = ::pthread_self();
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

/// Abandons the mutexes of an ended thread, and wakes the threads that wait for its end.
void end(Thread &thread, DWORD exitCode)
{
    abandonMutexes(thread);
    Object *object = thread.object;
    if (!object)
        return;
    thread.object = nullptr;
    object->thread = nullptr;
    object->exitCode = exitCode;
    object->level = thread.level;
    object->signalled = true;
    synchroniseRelease(object);
    serve(*object);
    --object->pins;
    release(*object);
}

void *run(void *data)
{
    Thread &thread = *static_cast<Thread *>(data);
    mine = &thread;
    scheduler.arrive(thread);
    DWORD exitCode;
    try {
        exitCode = thread.function(thread.argument);
        callBack(thread);
    } catch (...) {
        findException("exception");
    }
    enter("end");
    end(thread, exitCode);
    scheduler.leave();
    return nullptr;
}

} // namespace

Thread &currentThread()
{
    if (!mine) [[unlikely]]
        adopt();
    return *mine;
}

bool Scheduler::start(Thread &thread, SIZE_T stackSize)
{
    SIZE_T const wanted = stackSize ? stackSize : DEFAULT_STACK;
    if (wanted > SIZE_MAX / 8)
        return false;
    if (!isRunning()) {
        // A program that has not called `begin` runs under the default options.
        static Record record;
        begin({}, record);
    }
    weakMemory.start(indexOf(thread), indexOf(currentThread()));
    std::size_t const page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    bool const good = ::pthread_attr_setstacksize(
                          &attributes, (wanted + STACK_OVERHEAD + page - 1) / page * page) == 0 &&
                      ::pthread_create(&thread.pthread, &attributes, run, &thread) == 0;
    ::pthread_attr_destroy(&attributes);
    if (good && _record)
        ++_record->threads;
    return good;
}

void begin(Options const &options, Record &record)
{
    // The calling thread takes the place of the thread that has loaded the program.
    if (hasFirst) {
        mine = self;
        mine->pthread = ::pthread_self();
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
    : _what(what), _condition(condition), _data(data), _outer(currentThread().stated)
{
    currentThread().stated = this;
}

WaitingFor::~WaitingFor()
{
    currentThread().stated = _outer;
}

namespace {

/// Returns the object of a thread that has not ended, or null with the last error set.
Object *newThreadObject(Thread &thread)
{
    Object *object = newObject(Object::THREAD);
    if (!object)
        return nullptr;
    object->manual = true;
    object->exitCode = STILL_ACTIVE;
    object->pins = 1;
    object->thread = object->block = &thread;
    ++thread.holders;
    thread.object = object;
    return object;
}

} // namespace

} // namespace ZvPlatform::Simulated

namespace ZvPlatform {

using namespace Simulated;

// These calls only concern the calling thread, so they are no points of the schedule.

DWORD GetLastError()
{
    return currentThread().lastError;
}

void SetLastError(DWORD code)
{
    currentThread().lastError = code;
}

DWORD GetCurrentThreadId()
{
    return currentThread().number;
}

DWORD GetCurrentProcessId()
{
    return 1000;
}

HANDLE CreateThread(SECURITY_ATTRIBUTES *, SIZE_T stackSize, LPTHREAD_START_ROUTINE function,
                    void *argument, DWORD flags, DWORD *threadId)
{
    enter("CreateThread");
    if (DWORD const error = checkThread(function, flags))
        return refuse(error);
    Thread *thread = isRefused(THREADS) ? nullptr : scheduler.newThread();
    Object *object = thread ? newThreadObject(*thread) : nullptr;
    if (object) {
        thread->created = true;
        thread->function = function;
        thread->argument = argument;
    }
    if (!object || !scheduler.start(*thread, stackSize)) {
        if (object) {
            object->handles = object->pins = 0;
            release(*object);
        }
        if (thread)
            scheduler.release(*thread);
        return refuse(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (threadId)
        *threadId = thread->number;
    // A second point: the new thread may run, and even end, before the caller continues.
    enter("CreateThread, done", object);
    return object;
}

BOOL TerminateThread(HANDLE handle, DWORD exitCode)
{
    enter("TerminateThread", handle);
    Thread *thread = &currentThread();
    if (handle != CURRENT_THREAD) {
        Object *object = objectOf(handle, Object::THREAD);
        if (!object)
            return FALSE;
        thread = object->thread;
    }
    if (!thread)
        return TRUE;
    if (thread->state == Thread::WAITING && !thread->granted) {
        if (thread->kind == Thread::OBJECT) {
            thread->awaited->queue.remove(*thread);
            --thread->awaited->pins;
            release(*thread->awaited);
        } else if (thread->kind == Thread::SECTION) {
            --thread->section->waiters;
        } else if (thread->kind == Thread::ADDRESS) {
            leaveAddress(*thread);
        }
    }
    tellAcquire(thread);
    if (scheduler.isRunning())
        weakMemory.join(indexOf(currentThread()), indexOf(*thread));
    end(*thread, exitCode);
    // The killed thread keeps its block, its stack and its critical sections.
    if (thread == &currentThread())
        scheduler.abandon();
    thread->state = Thread::ENDED;
    return TRUE;
}

BOOL GetExitCodeThread(HANDLE handle, DWORD *exitCode)
{
    enter("GetExitCodeThread", handle);
    if (!exitCode)
        return fail(ERROR_INVALID_PARAMETER);
    Object *object = handle == CURRENT_THREAD ? nullptr : objectOf(handle, Object::THREAD);
    if (!object && handle != CURRENT_THREAD)
        return FALSE;
    *exitCode = object ? object->exitCode : STILL_ACTIVE;
    return TRUE;
}

namespace {

/// Returns an additional handle of the calling thread, or null with the last error set.
HANDLE ownHandle(Thread &thread)
{
    if (Object *object = thread.object) {
        ++object->handles;
        object->closed = false;
        return object;
    }
    return newThreadObject(thread);
}

} // namespace

BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE *target,
                     DWORD, BOOL, DWORD options)
{
    enter("DuplicateHandle", source);
    if (DWORD const error = checkDuplication(sourceProcess, source, targetProcess, target))
        return fail(error);
    HANDLE handle;
    if (source == CURRENT_THREAD) {
        handle = ownHandle(currentThread());
    } else {
        Object *object = objectOf(source);
        if (object)
            ++object->handles;
        handle = object;
    }
    if (!handle)
        return FALSE;
    *target = handle;
    return options & DUPLICATE_CLOSE_SOURCE ? CloseHandle(source) : TRUE;
}

} // namespace ZvPlatform
