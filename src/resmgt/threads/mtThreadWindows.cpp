#include "resmgt/threads/mtThreadWindows.private.h"

#include "platform/services.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtLogger.private.h"
#include "resmgt/threads/mtPriorityLevels.private.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/mtTraceMgr.private.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "zvbase/assertions.h"
#include "zvbase/failures.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgQueue.h"
#include "zvbase/trace.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iomanip>
#include <new>
#include <ostream>

namespace Zv {

namespace {

using RecGuard = LkGuard<LkRecLock const>;
using StateGuard = LkGuard<LkLock const>;

/// There is one object for a thread that the library has not made.
bool isFirst = true;

/// The wait of `join` has a handle of its own: another `join` may close the thread's meanwhile.
class OwnHandle
{
public:
    explicit OwnHandle(HANDLE handle)
    {
        HANDLE const process = ::GetCurrentProcess();
        ZV_SYS_ASSERT(::DuplicateHandle( process, handle, process, &_handle, 0, FALSE, DUPLICATE_SAME_ACCESS ));
    }
    OwnHandle(OwnHandle const &) = delete;
    OwnHandle &operator=(OwnHandle const &) = delete;
    ~OwnHandle() { ::CloseHandle(_handle); }

    HANDLE get() const { return _handle; }

private:
    HANDLE _handle = nullptr;
};

/// A report looks for the calling thread among all threads, under the manager's lock, which comes before a thread's
/// own: it is made without that.
#define ZV_SYS_ASSERT_UNLOCKING(guard, ...)                                                        \
    (static_cast<bool>(__VA_ARGS__) ? static_cast<void>(0)                                         \
                                    : failUnlocking(guard, __FILE__, __LINE__, #__VA_ARGS__))

/// The same, where a failure may be no matter.
#define ZV_SYS_ASSERT_UNLOCKING_OR(excuse, guard, ...)                                             \
    (static_cast<bool>(__VA_ARGS__) || (excuse)                                                    \
         ? static_cast<void>(0)                                                                    \
         : failUnlocking(guard, __FILE__, __LINE__, #__VA_ARGS__))

[[noreturn]] void failUnlocking(StateGuard &guard, char const *file, int line,
                                char const *expression) ZV_NO_THREAD_SAFETY_ANALYSIS
{
    DWORD const error = ::GetLastError();
    guard.unlock();
    Assertions::throwSysAssertionFailed(file, line, expression, static_cast<int>(error));
}

/// Until it is joined, a thread counts as running that has ended.
bool hasEnded(HANDLE thread)
{
    return ::WaitForSingleObject(thread, 0) == WAIT_OBJECT_0;
}

/// What a thread makes ahead of its first line. Where that fails, the line makes it, or goes straight to the output.
template <class Step>
void asMemoryAllows(Step const &step)
{
    try {
        step();
    } catch (std::bad_alloc const &) {
    }
}

void describeCallingThread(LiString const &name)
{
    static constexpr std::size_t LENGTH = 15; // what the system keeps
    wchar_t description[LENGTH + 1];
    char const * const text = name.getChars();
    std::size_t length = 0;
    for (; length != LENGTH && text[length]; ++length)
        description[length] = static_cast<unsigned char>(text[length]);
    description[length] = L'\0';
    ::SetThreadDescription(::GetCurrentThread(), description);
}

} // namespace

MtThreadWindows::MtThreadWindows(LiString const &name, ObjPtr<MtThreadProtocol> protocol,
                                 MtThreadMgr &threadMgr, bool isNewThread,
                                 bool terminateOnUnhandled, unsigned stackSize)
    : _threadMgr(&threadMgr),
      _threadHandle(nullptr),
      _threadId(0),
      _priorityValue(0),
      _processorNb(-1),
      _stackSize(stackSize ? stackSize : DEFAULT_STACK_SIZE),
      _isRunning(false),
      _cancelable(false),
      _terminateOnUnhandled(terminateOnUnhandled),
      _isNewThread(isNewThread),
      _runNb(0),
      _loggerRun(0),
      _logQueue(nullptr),
      _lock("MtThreadWindows"),
      _stateLock("MtThreadWindows::state"),
      _started("MtThreadWindows::started", 0, LkSemaTypes::PRIVATE),
      _created("MtThreadWindows::created", 0, LkSemaTypes::PRIVATE),
      _priority(name, this),
      _protocol(protocol)
{
    ZV_ASSERT(_started.getErrno() == 0 && _created.getErrno() == 0);
    if (!isNewThread)
        adoptCallingThread();
    bool isAdded = false;
    try {
        // Nothing of the object is missing when others come to see it.
        _threadMgr->addThread(this);
        isAdded = true;
        _threadMgr->threadIdChanged(this, getThreadId());
        if (MtThreadProtocol * const attached = getProtocol())
            attached->performAttach(this);
    } catch (...) {
        if (isAdded)
            _threadMgr->removeThread(this);
        if (!isNewThread)
            disownCallingThread();
        throw;
    }
}

MtThreadWindows::~MtThreadWindows() noexcept(false)
{
    bool const isUnwinding = std::uncaught_exceptions() != 0;
    std::exception_ptr failure;
    // Whatever fails, nothing of the object may be left with others when it is gone.
    auto const attempt = [&failure](auto const &step) {
        try {
            step();
        } catch (...) {
            if (!failure)
                failure = std::current_exception();
        }
    };
    attempt([this] { stop(); });
    attempt([this] { finish(); });
    attempt([this] {
        if (MtThreadProtocol * const protocol = getProtocol())
            protocol->performDetach(this);
    });
    attempt([this] { _threadMgr->removeThread(this); });
    if (failure && !isUnwinding)
        std::rethrow_exception(failure);
}

void MtThreadWindows::finish()
{
    // The main thread is not waited for: its object merely lets it go.
    if (_isNewThread)
        join();
    else
        static_cast<void>(leaveRunning(getRun()).release());
    ZV_ASSERT(!isRunning());
}

void MtThreadWindows::adoptCallingThread()
{
    bool const first = ZvPlatform::Interlocked::exchange(isFirst, false);
    ZV_ASSERT(first);

    HANDLE const threadHandle = ::GetCurrentThread();
    ZV_SYS_ASSERT(threadHandle);
    HANDLE const processHandle = ::GetCurrentProcess();
    ZV_SYS_ASSERT(processHandle);
    StateGuard const state(_stateLock);
    ZV_SYS_ASSERT(::DuplicateHandle( processHandle, threadHandle, processHandle, &_threadHandle, 0, FALSE, DUPLICATE_SAME_ACCESS ));
    _threadId = ::GetCurrentThreadId();
    _isRunning = true;
}

// The object could not be made, and may be tried again.
void MtThreadWindows::disownCallingThread()
{
    StateGuard const state(_stateLock);
    ::CloseHandle(_threadHandle);
    ZvPlatform::Interlocked::exchange(isFirst, true);
}

void MtThreadWindows::start()
{
    RecGuard const guard(_lock);
    ZV_ASSERT(!isRunningNoLock());
    ZV_ASSERT(canStart());
    DWORD threadId = 0;
    HANDLE const threadHandle = ::CreateThread(nullptr, _stackSize, execute, this, 0, &threadId);
    ZV_SYS_ASSERT(threadHandle != NULL);
    try {
        enterRunning(threadHandle, threadId);
    } catch (...) {
        meetNewThread();
        throw;
    }
    meetNewThread();
}

// Its way is free before it comes here: of the two, only this thread ever sleeps.
void MtThreadWindows::meetNewThread()
{
    _created.post();
    _started.wait();
}

void MtThreadWindows::enterRunning(HANDLE threadHandle, ZvPlatform::ThreadNumber threadId)
{
    {
        StateGuard state(_stateLock);
        _threadHandle = threadHandle;
        _threadId = threadId;
        _isRunning = true;
        ++_runNb;
        ZV_SYS_ASSERT_UNLOCKING(state, ::SetThreadPriority( _threadHandle, _priorityValue ));
    }
    _threadMgr->threadIdChanged(this, LkThreadId(threadId));
}

MtThreadWindows::Run MtThreadWindows::getRun() const
{
    StateGuard const state(_stateLock);
    return {_isRunning ? _threadHandle : nullptr, _runNb};
}

ObjPtrRet<ExBase> MtThreadWindows::leaveRunning(Run const &run)
{
    ObjPtr<ExBase> exception;
    {
        StateGuard const state(_stateLock);
        if (!_isRunning || _runNb != run.number)
            return nullptr;
        _isRunning = false;
        _threadHandle = nullptr;
        _threadId = 0;
        exception.swap(_exception);
    }
    ::CloseHandle(run.handle);
    _threadMgr->threadIdChanged(this, LkThreadId());
    return exception;
}

ZvPlatform::ThreadResult MtThreadWindows::execute(void *data)
{
    ZV_ASSERT(data);
    static_cast<MtThreadWindows *>(data)->run();
    return 0;
}

// The meeting in `start` orders the reading of the protocol.
void MtThreadWindows::run() noexcept ZV_NO_THREAD_SAFETY_ANALYSIS
{
    setCancelable(false, false);
    describeCallingThread(_priority.getName());
    _loggerRun = MtLogger::getRun();
    _logQueue = nullptr;
    asMemoryAllows([this] { _logQueue = MtLogger::enterThread(); });
    _started.post();
    _created.wait();

    asMemoryAllows([] { MtTraceMgr::prepareThread(); });
    applyProcessorNb();
    if (!_protocol.isNull())
        _protocol->performExecute(this);
    setCancelable(false, false); // who is killed in what follows keeps others' locks
    threadEnded();
    MtLogger::exitThread();
    freeSpecificData();
    abortOnException();
}

void MtThreadWindows::abortOnException() const
{
    bool isToAbort;
    {
        StateGuard const state(_stateLock);
        isToAbort = !_exception.isNull() && _terminateOnUnhandled;
    }
    if (isToAbort) {
        ZV_TRACE(*ThreadsStatics::threadLevel, "Terminating on unhandled exception.");
        LgLog::flush();
        std::abort();
    }
}

void MtThreadWindows::stop()
{
    RecGuard const guard(_lock);
    if (!_protocol.isNull())
        _protocol->performStop(this);
}

void MtThreadWindows::join()
{
    ObjPtr<ExBase> exception(waitForEnd());
    if (!exception.isNull()) {
        MtEx::ExThrownException const thrown(__FILE__, __LINE__, exception.release());
        Trace::printException(thrown, __FILE__, __LINE__);
        throw MtEx::ExThrownException(thrown);
    }
}

ObjPtrRet<ExBase> MtThreadWindows::waitForEnd()
{
    RecGuard guard(_lock);
    Run const run = getRun();
    if (!run.handle)
        return nullptr;
    OwnHandle const threadHandle(run.handle);
    guard.unlock();
    DWORD const waitResult = ::WaitForSingleObject(threadHandle.get(), INFINITE);
    guard.relock();
    ZV_SYS_ASSERT(waitResult == WAIT_OBJECT_0);
    return leaveRunning(run);
}

void MtThreadWindows::cancel()
{
    ZV_TRACE_ENTRY(*ThreadsStatics::threadLevel, "MtThreadWindows::cancel");
    RecGuard const guard(_lock);
    if (!isRunningNoLock()) {
        ZV_TRACE(*ThreadsStatics::threadLevel, "isRunningNoLock() returned FALSE!!!");
        return;
    }
    if (!terminate()) {
        ZV_TRACE(*ThreadsStatics::threadLevel, "_cancelable is FALSE!!!");
        return;
    }
    if (!_protocol.isNull())
        _protocol->performCanceled(this);
    exitLogQueue();
}

void MtThreadWindows::exitLogQueue()
{
    bool const found = LgLog::creatorExit(getThreadId().getNumber());
    if (_logQueue && _loggerRun == MtLogger::getRun())
        ZV_ASSERT(found);
    else if (_logQueue && !found)
        _logQueue->creatorExit(); // its logger has been stopped since
}

// Under the lock that `disableCancel` takes: a thread that has come back from there is not killed.
bool MtThreadWindows::terminate()
{
    StateGuard state(_stateLock);
    if (!_cancelable)
        return false;
    ZV_SYS_ASSERT_UNLOCKING(state, ::TerminateThread( _threadHandle, 0 ));
    _cancelable = false; // nobody dies twice
    return true;
}

void MtThreadWindows::testCancel() {}

bool MtThreadWindows::isProcessorPlaceable() const
{
    return true;
}

int MtThreadWindows::getProcessorNb() const
{
    StateGuard const state(_stateLock);
    return _processorNb;
}

void MtThreadWindows::setProcessorNb(int processorNb)
{
    RecGuard const guard(_lock);
    setProcessorNbNoLock(processorNb);
}

bool MtThreadWindows::isRunning() const
{
    return isRunningNoLock();
}

bool MtThreadWindows::isRunningNoLock() const
{
    StateGuard const state(_stateLock);
    return _isRunning;
}

bool MtThreadWindows::isCancelable() const
{
    ZV_ASSERT(isRunning());
    StateGuard const state(_stateLock);
    return _cancelable;
}

LiString MtThreadWindows::getName() const
{
    return _priority.getName();
}

Priority &MtThreadWindows::getPriority()
{
    return _priority;
}

MtThreadProtocol *MtThreadWindows::getProtocol() const
{
    RecGuard const guard(_lock);
    return _protocol.get();
}

MtThreadProtocol *MtThreadWindows::getProtocolNoLock() const
{
    RecGuard const guard(_lock);
    return _protocol.get();
}

ObjPtrRet<MtThreadProtocol> MtThreadWindows::detachProtocol()
{
    if (MtThreadProtocol * const protocol = getProtocol())
        protocol->performDetach(this);
    RecGuard const guard(_lock);
    return _protocol;
}

LkThreadId MtThreadWindows::getThreadId() const
{
    StateGuard const state(_stateLock);
    return LkThreadId(_threadId);
}

bool MtThreadWindows::enableCancel()
{
    return setCancelable(true, true);
}

bool MtThreadWindows::disableCancel()
{
    return setCancelable(false, true);
}

bool MtThreadWindows::setCancelable(bool cancelable, bool check)
{
    ZV_ASSERT(!check || isRunningNoLock());
    StateGuard const state(_stateLock);
    return std::exchange(_cancelable, cancelable) != cancelable;
}

void MtThreadWindows::setPriorityValue(int level)
{
    int const priorityValue = MtPriorityLevels::toSystemValue(level);
    StateGuard state(_stateLock);
    if (priorityValue == _priorityValue)
        return;
    _priorityValue = priorityValue;
    if (_isRunning)
        ZV_SYS_ASSERT_UNLOCKING(state, ::SetThreadPriority( _threadHandle, _priorityValue ));
}

void MtThreadWindows::applyProcessorNb()
{
    StateGuard state(_stateLock);
    if (_processorNb > -1 && ThreadsStatics::runOn.getValue() != 0)
        place(_processorNb, state);
}

void MtThreadWindows::threadEnded() {}

void MtThreadWindows::setProcessorNbNoLock(int processorNb)
{
    StateGuard state(_stateLock);
    place(processorNb, state);
}

void MtThreadWindows::place(int processorNb, StateGuard &state)
{
    if (isProcessorPlaceable() && _isRunning) {
        DWORD_PTR mask = DWORD_PTR{1} << (processorNb & 31);
        if (processorNb < 0) {
            HANDLE const processHandle = ::GetCurrentProcess();
            DWORD_PTR threadAffinity = 0;
            DWORD_PTR systemAffinity = 0;
            ZV_SYS_ASSERT_UNLOCKING(
                state, ::GetProcessAffinityMask( processHandle, &threadAffinity, &systemAffinity ));
            mask = threadAffinity;
        }
        ZV_SYS_ASSERT_UNLOCKING_OR(hasEnded(_threadHandle), state, ::SetThreadAffinityMask( _threadHandle, mask ));
    }
    _processorNb = processorNb;
}

void MtThreadWindows::dump(std::ostream &os) const
{
    LiString const name = getName();
    StateGuard const state(_stateLock);
    int const level = MtPriorityLevels::fromSystemValue(
        _isRunning ? ::GetThreadPriority(_threadHandle) : _priorityValue);
    os << LkThreadId(_threadId) << std::setw(20) << name.getChars() << " prio " << std::setw(3)
       << level << " NTprio " << std::setw(3)
       << MtPriorityLevels::getBasePriority(::GetPriorityClass(::GetCurrentProcess()), level)
       << " pol "
       << "RR SYSTEM"
       << " ex? " << (_exception.isNull() ? "no exception" : _exception->getReason()) << " runon "
       << std::setw(2) << _processorNb;
}

// The stack is the system's: it has no protection page of the library's own to tell of.
void printThreadStack()
{
    int volatile valueOnStack1 = 0;
    int volatile valueOnStack2 = 0;
    auto const address = [](int const volatile &value) { return const_cast<int const *>(&value); };
    ZV_TRACE(*ThreadsStatics::threadLevel,
             "&valueOnStack1 " << '[' << static_cast<void const *>(address(valueOnStack1)) << "] "
                               << "&valueOnStack2 " << '['
                               << static_cast<void const *>(address(valueOnStack2)) << "] "
                               << "allocAddr "
                               << "N/A"
                               << " frontProtectAddr "
                               << "N/A");
}

} // namespace Zv
