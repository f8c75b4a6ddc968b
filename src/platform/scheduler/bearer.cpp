#include "platform/scheduler/bearer.h"

#include <climits>
#include <cstdlib>
#include <linux/futex.h>
#include <new>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace ZvPlatform::Simulated {

namespace {

/// The thread that has loaded the program.
constinit Bearer first;
constinit thread_local Bearer *present __attribute__((tls_model("initial-exec"))) = nullptr;
constinit Bearer *prepared = nullptr;

/// What the creator of a real thread shares with it until the thread has arrived.
struct Arrival
{
    Bearer *bearer = nullptr;
    std::uint32_t hasArrived = 0;
};

// The fences order what the simulation does. The thread sanitizer must not see an order here that
// the program does not have, so the operations on the word are relaxed.

void sleepUntilSet(std::uint32_t &word)
{
    while (__atomic_exchange_n(&word, 0, __ATOMIC_RELAXED) == 0)
        ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
}

void set(std::uint32_t &word)
{
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
    __atomic_store_n(&word, 1, __ATOMIC_RELAXED);
    ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace

Bearer &Bearer::current()
{
    return present ? *present : first;
}

void *Bearer::begin(void *data)
{
    Arrival &arrival = *static_cast<Arrival *>(data);
    // In the frame of its thread, so that it exists as long as the thread, even if that is killed.
    Bearer bearer;
    present = arrival.bearer = &bearer;
    bearer.sleep(arrival.hasArrived);
    bearer._function(bearer._argument);
    return nullptr;
}

Bearer *Bearer::createReal(std::size_t stackSize)
{
    Arrival arrival;
    pthread_t thread;
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    bool const good = ::pthread_attr_setstacksize(&attributes, stackSize) == 0 &&
                      ::pthread_create(&thread, &attributes, begin, &arrival) == 0;
    ::pthread_attr_destroy(&attributes);
    if (!good)
        return nullptr;
    sleepUntilSet(arrival.hasArrived);
    arrival.bearer->_thread = thread;
    arrival.bearer->_stackSize = stackSize;
    return arrival.bearer;
}

Bearer *Bearer::create(std::size_t stackSize, Function function, void *argument)
{
    Bearer *bearer = prepared;
    if (bearer && stackSize <= bearer->_stackSize)
        prepared = bearer->_next;
    else
        bearer = createReal(stackSize);
    if (!bearer)
        return nullptr;
    bearer->_function = function;
    bearer->_argument = argument;
    return bearer;
}

void Bearer::join()
{
    // A prepared thread is not used twice, so that each thread begins with new values.
    if (_isPrepared)
        return;
    pthread_t const thread = _thread;
    release();
    ::pthread_join(thread, nullptr);
}

} // namespace ZvPlatform::Simulated

#if defined(__x86_64__) && !defined(ZV_THREAD_SANITIZER)

#include <asm/prctl.h>
#include <sys/auxv.h>

// A thread without the baton has its registers on its stack, the floating-point modes last.
//
// zvSwitchStacks(void **from, void *to) stores the top of the stack in `from`, and continues on
// the stack `to`.
//
// zvSleepBeside(void **stack, std::uint32_t *word, std::uint32_t *hasArrived) stores the top of
// the stack, sets `hasArrived` to 1, and sleeps until `word` is 1. Then it continues at the top
// that is stored by then. Meanwhile other threads use the stack, so it uses registers alone. The
// numbers are those of the system call futex, FUTEX_WAKE_PRIVATE, INT_MAX and FUTEX_WAIT_PRIVATE.
asm(R"(
    .macro zvStoreRegisters
    pushq %rbp
    pushq %rbx
    pushq %r12
    pushq %r13
    pushq %r14
    pushq %r15
    subq $8, %rsp
    stmxcsr (%rsp)
    fnstcw 4(%rsp)
    movq %rsp, (%rdi)
    .endm

    .text
    .p2align 4
    .type zvSwitchStacks, @function
zvSwitchStacks:
    zvStoreRegisters
    movq %rsi, %rsp
.LzvContinue:
    ldmxcsr (%rsp)
    fldcw 4(%rsp)
    addq $8, %rsp
    popq %r15
    popq %r14
    popq %r13
    popq %r12
    popq %rbx
    popq %rbp
    ret
    .size zvSwitchStacks, . - zvSwitchStacks

    .p2align 4
    .type zvSleepBeside, @function
zvSleepBeside:
    zvStoreRegisters
    movq %rdi, %r12
    movq %rsi, %r13
    movl $1, (%rdx)
    movl $202, %eax
    movq %rdx, %rdi
    movl $129, %esi
    movl $0x7FFFFFFF, %edx
    syscall
1:  cmpl $1, (%r13)
    je 2f
    movl $202, %eax
    movq %r13, %rdi
    movl $128, %esi
    xorl %edx, %edx
    xorl %r10d, %r10d
    syscall
    jmp 1b
2:  movq (%r12), %rsp
    jmp .LzvContinue
    .size zvSleepBeside, . - zvSleepBeside
    .purgem zvStoreRegisters
)");

extern "C" {
void zvSwitchStacks(void **from, void *to);
void zvSleepBeside(void **stack, std::uint32_t *word, std::uint32_t *hasArrived);
}

namespace ZvPlatform::Simulated {

namespace {

void *threadPointer()
{
    void *pointer;
    asm volatile("movq %%fs:0, %0" : "=r"(pointer));
    return pointer;
}

void setThreadPointer(void *pointer)
{
    constexpr unsigned long HAS_WRFSBASE = 2;
    if (::getauxval(AT_HWCAP2) & HAS_WRFSBASE) {
        asm volatile("wrfsbase %0" : : "r"(pointer) : "memory");
        return;
    }
    // No function of the C library is called, because errno is a thread-local value.
    long result = SYS_arch_prctl;
    asm volatile("syscall"
                 : "+a"(result)
                 : "D"(static_cast<long>(ARCH_SET_FS)), "S"(pointer)
                 : "rcx", "r11", "memory");
}

} // namespace

void Bearer::sleep(std::uint32_t &hasArrived)
{
    _values = threadPointer();
    zvSleepBeside(&_stack, &_word, &hasArrived);
}

void Bearer::passTo(Bearer &to, bool)
{
    _values = threadPointer();
    setThreadPointer(to._values);
    zvSwitchStacks(&_stack, to._stack);
}

void Bearer::release()
{
    set(_word);
}

bool Bearer::isOnlyOneReal()
{
    return true;
}

void Bearer::prepare(unsigned count, std::size_t stackSize)
{
    for (unsigned i = 0; i < count; ++i) {
        Bearer *bearer = createReal(stackSize);
        if (!bearer)
            return;
        bearer->_isPrepared = true;
        bearer->_next = std::exchange(prepared, bearer);
    }
}

pid_t Bearer::fork()
{
    // The other function would take the stacks of the prepared threads for free memory.
    return ::_Fork();
}

} // namespace ZvPlatform::Simulated

#else

namespace ZvPlatform::Simulated {

void Bearer::sleep(std::uint32_t &hasArrived)
{
    set(hasArrived);
    sleepUntilSet(_word);
}

void Bearer::passTo(Bearer &to, bool isEnding)
{
    set(to._word);
    if (!isEnding)
        sleepUntilSet(_word);
}

void Bearer::release() {}

bool Bearer::isOnlyOneReal()
{
    return false;
}

void Bearer::prepare(unsigned, std::size_t) {}

pid_t Bearer::fork()
{
    return ::fork();
}

} // namespace ZvPlatform::Simulated

#endif

// ---- Thread-local values with a destructor.

namespace ZvPlatform::Simulated {

namespace {

using Destructor = void (*)(void *);

struct Value
{
    Destructor destroy;
    void *object;
    Value *older;
};

constinit thread_local Value *values __attribute__((tls_model("initial-exec"))) = nullptr;

} // namespace

void Bearer::destroyValues()
{
    while (Value * const value = values) {
        values = value->older;
        value->destroy(value->object);
        std::free(value);
    }
}

} // namespace ZvPlatform::Simulated

// Registers the destructor of a thread-local value. The C++ library has a function of this name,
// whose destructors run at the end of the real thread. A prepared thread has none.
extern "C" {
int __cxa_thread_atexit_impl(void (*)(void *), void *, void *) noexcept;
__attribute__((visibility("default"))) int __cxa_thread_atexit(void (*)(void *), void *,
                                                               void *) noexcept;
}

int __cxa_thread_atexit(void (*destroy)(void *), void *object, void *library) noexcept
{
    using namespace ZvPlatform::Simulated;
    if (!present)
        return ::__cxa_thread_atexit_impl(destroy, object, library);
    void * const memory = std::malloc(sizeof(Value));
    if (!memory)
        std::abort();
    values = new (memory) Value{destroy, object, values};
    return 0;
}
