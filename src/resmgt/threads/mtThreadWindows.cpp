#include "resmgt/threads/mtThreadWindows.private.h"

#include "platform/services.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtLogger.private.h"
#include "resmgt/threads/mtPriorityLevels.private.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/mtThreadStart.private.h"
#include "resmgt/threads/mtThreadStatus.h"
#include "resmgt/threads/mtTraceMgr.private.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "zvbase/assertions.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgQueue.h"
#include "zvbase/lgTrace.h"
#include "zvbase/platform/shared.h"
#include "zvbase/trace.h"
#include "zvbase/traceEvents.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iomanip>
#include <new>
#include <sstream>
#include <utility>

namespace Zv {

namespace {

using RecGuard = LkGuard<LkRecLock const>;
using StateGuard = LkGuard<LkLock const>;

/// Cleared when the one object of a thread that the library did not create, the main thread,
/// exists.
constinit ZvPlatform::Shared<bool> isFirst{true};

/// A handle for the wait in `join`, because another `join` may close the thread's handle meanwhile.
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

/// Fails a system assertion without the guard's lock. The report searches for the calling thread
/// under the manager's lock, which must be acquired before a thread's own lock.
#define ZV_SYS_ASSERT_UNLOCKING(guard, ...)                                                        \
    (static_cast<bool>(__VA_ARGS__) ? static_cast<void>(0)                                         \
                                    : failUnlocking(guard, __FILE__, __LINE__, #__VA_ARGS__))

/// Like the macro above, but ignores a failure if `excuse` is true.
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

/// Returns whether a thread that was not joined yet has ended.
bool hasEnded(HANDLE thread)
{
    return ::WaitForSingleObject(thread, 0) == WAIT_OBJECT_0;
}

/// Decodes the character that begins at `text`, of at most `length` bytes. Returns its size. If it
/// is not valid UTF-8, returns 1 and the code of a lone surrogate, which the platform layer
/// converts back to the byte.
std::size_t decode(unsigned char const *text, std::size_t length, std::uint32_t &code)
{
    code = text[0];
    if (code < 0x80)
        return 1;
    std::size_t const size = code >= 0xF0 ? 4 : code >= 0xE0 ? 3 : 2;
    std::uint32_t value = code & (0xFF >> (size + 1));
    bool isGood = code >= 0xC2 && code < 0xF5 && size <= length;
    for (std::size_t i = 1; isGood && i != size; ++i) {
        isGood = (text[i] & 0xC0) == 0x80;
        value = value << 6 | (text[i] & 0x3F);
    }
    constexpr std::uint32_t FIRST_OF_SIZE[] = {0, 0, 0x80, 0x800, 0x10000};
    isGood = isGood && value >= FIRST_OF_SIZE[size] && value < 0x110000 &&
             (value < 0xD800 || value >= 0xE000);
    code = isGood ? value : 0xDC00 | code;
    return isGood ? size : 1;
}

/// Runs a step that prepares the first line of a thread. If memory is short, that line repeats the
/// step, or is written directly to the output.
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
    wchar_t description[2 * LENGTH + 1];
    auto const *text = reinterpret_cast<unsigned char const *>(name.getChars());
    std::size_t left = std::min(std::strlen(name.getChars()), LENGTH + 3), size = 0;
    for (std::size_t read = 0; left && read < LENGTH;) {
        std::uint32_t code = 0;
        std::size_t const step = decode(text + read, left, code);
        read += step;
        left -= step;
        if (sizeof(wchar_t) == 2 && code > 0xFFFF) {
            description[size++] = static_cast<wchar_t>(0xD7C0 + (code >> 10));
            code = 0xDC00 | (code & 0x3FF);
        }
        description[size++] = static_cast<wchar_t>(code);
    }
    description[size] = L'\0';
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
      _ownPriorityValue(0),
      _isLevelRefused(false),
      _processorNb(-1),
      _stackSize(stackSize ? stackSize : DEFAULT_STACK_SIZE),
      _isRunning(false),
      _cancelling(Cancelling::FORBIDDEN),
      _terminateOnUnhandled(terminateOnUnhandled),
      _isNewThread(isNewThread),
      _runNb(0),
      _meets(true),
      _loggerRun(0),
      _logQueue(nullptr),
      _lock("MtThreadWindows"),
      _stateLock("MtThreadWindows::state"),
      _started("MtThreadWindows::started", 0, LkSemaTypes::PRIVATE),
      _created("MtThreadWindows::created", 0, LkSemaTypes::PRIVATE),
      _priority(name, this),
      _protocol(std::move(protocol))
{
    ZV_ASSERT(_started.getErrno() == 0 && _created.getErrno() == 0);
    bool isAdded = false;
    try {
        if (!isNewThread)
            adoptCallingThread();
        // From here on other threads see the object, which must be complete.
        _threadMgr->addThread(this);
        isAdded = true;
        _threadMgr->threadIdChanged(this, getThreadId());
        if (MtThreadProtocol * const attached = getProtocol())
            attached->performAttach(this);
    } catch (...) {
        if (isAdded)
            _threadMgr->removeThread(this);
        if (_isRunning.load(ZvPlatform::Order::RELAXED))
            disownCallingThread();
        throw;
    }
}

MtThreadWindows::~MtThreadWindows() noexcept(false)
{
    // If a step fails, the others must run nevertheless, so that nothing refers to the object when
    // it is gone.
    FirstFailure failure;
    failure.attempt([this] { stop(); });
    failure.attempt([this] { finish(); });
    failure.attempt([this] {
        if (MtThreadProtocol * const protocol = getProtocol())
            protocol->performDetach(this);
    });
    failure.attempt([this] { _threadMgr->removeThread(this); });
    failure.rethrow();
}

void MtThreadWindows::finish()
{
    // The main thread runs on without its object, so there is no end to wait for.
    if (_isNewThread)
        join();
    else
        static_cast<void>(leaveRunning(getRun()).release());
    ZV_ASSERT(!isRunning());
}

void MtThreadWindows::adoptCallingThread()
{
    bool const first = isFirst.exchange(false, ZvPlatform::Order::RELAXED);
    ZV_ASSERT(first);
    try {
        HANDLE const threadHandle = ::GetCurrentThread();
        ZV_SYS_ASSERT(threadHandle);
        HANDLE const processHandle = ::GetCurrentProcess();
        ZV_SYS_ASSERT(processHandle);
        StateGuard const state(_stateLock);
        ZV_SYS_ASSERT(::DuplicateHandle( processHandle, threadHandle, processHandle, &_threadHandle, 0, FALSE, DUPLICATE_SAME_ACCESS ));
        _threadId = ::GetCurrentThreadId();
        _priorityValue = _ownPriorityValue = ::GetThreadPriority(_threadHandle);
        _isRunning.store(true, ZvPlatform::Order::RELAXED);
    } catch (...) {
        isFirst.exchange(true, ZvPlatform::Order::RELAXED);
        throw;
    }
}

// Called if the constructor fails. It may be tried again.
void MtThreadWindows::disownCallingThread()
{
    StateGuard const state(_stateLock);
    ::CloseHandle(_threadHandle);
    isFirst.exchange(true, ZvPlatform::Order::RELAXED);
}

void MtThreadWindows::start()
{
    start(true);
}

void MtThreadWindows::startWithoutMeeting()
{
    start(false);
}

void MtThreadWindows::start(bool meets)
{
    RecGuard const guard(_lock);
    ZV_ASSERT(!isRunningNoLock());
    ZV_ASSERT(canStart());
    _placingFailure = nullptr;
    _meets = meets || isToBePlaced();
    DWORD threadId = 0;
    HANDLE const threadHandle = ::CreateThread(nullptr, _stackSize, execute, this, 0, &threadId);
    ZV_SYS_ASSERT(threadHandle != NULL);
    FirstFailure failure;
    failure.attempt([&] { enterRunning(threadHandle, threadId); });
    _created.post();
    if (_meets)
        _started.wait();
    failure.rethrowAlways();
    if (_meets && _placingFailure)
        failStart();
}

// The new thread needs no lock of this thread but the leaf to end, so that this may wait under
// `_lock`.
void MtThreadWindows::failStart()
{
    Run const run = getRun();
    DWORD const waitResult = ::WaitForSingleObject(run.handle, INFINITE);
    ZV_SYS_ASSERT(waitResult == WAIT_OBJECT_0);
    ObjPtr<ExBase> const exception(leaveRunning(run));
    std::rethrow_exception(std::exchange(_placingFailure, nullptr));
}

void MtThreadWindows::enterRunning(HANDLE threadHandle, ZvPlatform::ThreadNumber threadId)
{
    {
        StateGuard state(_stateLock);
        _threadHandle = threadHandle;
        _threadId = threadId;
        _isRunning.store(true, ZvPlatform::Order::RELAXED);
        ++_runNb;
        applyPriorityValue(state);
    }
    _threadMgr->threadIdChanged(this, LkThreadId(threadId));
}

MtThreadWindows::Run MtThreadWindows::getRun() const
{
    StateGuard const state(_stateLock);
    return {isRunningNoLock() ? _threadHandle : nullptr, _runNb};
}

ObjPtrRet<ExBase> MtThreadWindows::leaveRunning(Run const &run)
{
    ObjPtr<ExBase> exception;
    {
        StateGuard const state(_stateLock);
        if (!isRunningNoLock() || _runNb != run.number)
            return nullptr;
        _isRunning.store(false, ZvPlatform::Order::RELEASE);
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

// Reads the protocol without `_lock`, which `start` may hold. A running thread keeps its protocol.
void MtThreadWindows::run() noexcept ZV_NO_THREAD_SAFETY_ANALYSIS
{
    setCancelable(false, false);
    describeCallingThread(_priority.getName());
    TraceEvents::nameThread(_priority.getName().getChars());
    _loggerRun = MtLogger::getRun();
    _logQueue = nullptr;
    asMemoryAllows([this] { _logQueue = MtLogger::enterThread(); });
    _created.wait();
    bool const isToExecute = (!_meets || meetStarter()) && !_protocol.isNull();

    asMemoryAllows([] { MtTraceMgr::prepareThread(); });
    if (isToExecute)
        executeProtocol();
    setCancelable(false, false); // a kill in what follows would leave locks of the library locked
    threadEnded();
    MtLogger::exitThread();
    freeSpecificData();
    abortOnException();
}

/// Returns false if the thread could not be placed.
bool MtThreadWindows::meetStarter()
{
    try {
        applyProcessorNb();
    } catch (...) {
        _placingFailure = std::current_exception(); // `start` throws it
    }
    bool const isPlaced = !_placingFailure;
    _started.post();
    return isPlaced;
}

// An exception that leaves the body ends the process, because `run` is noexcept. The log is written
// before.
void MtThreadWindows::executeProtocol() ZV_NO_THREAD_SAFETY_ANALYSIS
{
    try {
        _protocol->performExecute(this);
    } catch (...) {
        if (!std::current_exception())
            LgTrace::print("A thread's body ends by the POSIX exit or cancel. It must not.");
        LgLog::flush();
        throw;
    }
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
    FirstFailure failure;
    if (MtThreadProtocol * const protocol = _protocol.get())
        failure.attempt([this, protocol] { protocol->performCanceled(this); });
    exitLogQueue();
    failure.rethrowAlways();
}

void MtThreadWindows::exitLogQueue()
{
    bool const found = LgLog::creatorExit(getThreadId().getNumber());
    if (_logQueue && _loggerRun == MtLogger::getRun())
        ZV_ASSERT(found);
    else if (_logQueue && !found)
        _logQueue->creatorExit(); // its logger has been stopped meanwhile
}

// Does not hold `_stateLock`, because it may take until the thread reaches a point at which it can
// be killed. The caller's `_lock` keeps the handle open.
bool MtThreadWindows::terminate()
{
    Cancelling expected = Cancelling::ALLOWED;
    if (!_cancelling.compare_exchange_strong(
            expected, Cancelling::BEGUN, ZvPlatform::Order::RELAXED, ZvPlatform::Order::RELAXED))
        return false;
    bool const isKilled = ::TerminateThread(getRun().handle, 0);
    int const error = static_cast<int>(::GetLastError());
    _cancelling.store(isKilled ? Cancelling::FORBIDDEN : Cancelling::ALLOWED,
                      ZvPlatform::Order::RELAXED);
    if (!isKilled)
        Assertions::throwSysAssertionFailed(__FILE__, __LINE__,
                                            "::TerminateThread( _threadHandle, 0 )", error);
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
    return _isRunning.load(ZvPlatform::Order::ACQUIRE);
}

bool MtThreadWindows::isCancelable() const
{
    ZV_ASSERT(isRunning());
    return _cancelling.load(ZvPlatform::Order::RELAXED) == Cancelling::ALLOWED;
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
    Cancelling expected = cancelable ? Cancelling::FORBIDDEN : Cancelling::ALLOWED;
    Cancelling const desired = cancelable ? Cancelling::ALLOWED : Cancelling::FORBIDDEN;
    Cancelling const former = expected;
    while (!_cancelling.compare_exchange_strong(expected, desired, ZvPlatform::Order::RELAXED,
                                                ZvPlatform::Order::RELAXED)) {
        if (expected != Cancelling::BEGUN)
            return false;
        // Must not return while the thread is being killed. Waits for the kill, or for the system's
        // refusal.
        ::WaitForSingleObject(::GetCurrentThread(), 1);
        expected = former;
    }
    return true;
}

void MtThreadWindows::setPriorityValue(int level)
{
    int priorityValue = MtPriorityLevels::toSystemValue(level);
    StateGuard state(_stateLock);
    // The main thread keeps its own level until a relation demands another one.
    if (!_isNewThread && level == MtPriorityLevels::MINIMUM)
        priorityValue = _ownPriorityValue;
    if (priorityValue == _priorityValue && !_isLevelRefused)
        return;
    _priorityValue = priorityValue;
    if (isRunningNoLock())
        applyPriorityValue(state);
}

void MtThreadWindows::applyPriorityValue(StateGuard &state)
{
    _isLevelRefused = true; // requested again if this fails
    ZV_SYS_ASSERT_UNLOCKING(state, ::SetThreadPriority( _threadHandle, _priorityValue ));
    _isLevelRefused = false;
}

bool MtThreadWindows::isToBePlaced() const
{
    StateGuard const state(_stateLock);
    return isToBePlacedNoLock();
}

bool MtThreadWindows::isToBePlacedNoLock() const
{
    return _processorNb > -1 && ThreadsStatics::runOn.getValue() != 0;
}

void MtThreadWindows::applyProcessorNb()
{
    StateGuard state(_stateLock);
    if (isToBePlacedNoLock())
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
    if (isProcessorPlaceable() && isRunningNoLock()) {
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
    std::ostringstream text; // the caller's stream is written without the lock
    {
        StateGuard const state(_stateLock);
        int const level = MtPriorityLevels::fromSystemValue(
            isRunningNoLock() ? ::GetThreadPriority(_threadHandle) : _priorityValue);
        text << LkThreadId(_threadId) << std::setw(20) << name.getChars() << " prio "
             << std::setw(3) << level << " NTprio " << std::setw(3)
             << MtPriorityLevels::getBasePriority(::GetPriorityClass(::GetCurrentProcess()), level)
             << " pol "
             << "RR SYSTEM"
             << " ex? " << (_exception.isNull() ? "no exception" : _exception->getReason())
             << " runon " << std::setw(2) << _processorNb;
    }
    os << text.str();
}

MtThreadStatus MtThreadWindows::readStatus() const
{
    auto const toPublic = [](ZvPlatform::Scheduling const &scheduling) {
        return MtScheduling{scheduling.isRealTime, scheduling.priority};
    };
    MtThreadStatus status;
    status.name = getName();
    StateGuard const state(_stateLock);
    status.threadId = LkThreadId(_threadId);
    status.level = MtPriorityLevels::fromSystemValue(_priorityValue);
    DWORD const priorityClass = ::GetPriorityClass(::GetCurrentProcess());
    status.asked = toPublic(ZvPlatform::schedulingOf(priorityClass, _priorityValue));
    if (ZvPlatform::Scheduling granted = {}; isRunningNoLock()) {
        status.systemNumber = ZvPlatform::readScheduling(_threadHandle, granted);
        status.granted = toPublic(granted);
    }
    return status;
}

// The stack belongs to the system. It has no protection page of the library, hence "N/A".
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

void startWithoutMeeting(MtThread &thread)
{
    // The application may have a thread class of its own.
    if (auto * const own = dynamic_cast<MtThreadWindows *>(&thread))
        own->startWithoutMeeting();
    else
        thread.start();
}

} // namespace Zv
