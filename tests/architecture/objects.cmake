# Checks that nothing above the platform layer bypasses it. The objects contain no thread, lock, clock or wait of the
# system or of the standard library, and no guard of a function's static. What uses the layer can be simulated.
#
#     cmake -D NM=nm -D OBJECTS=<file with a list of objects> -P objects.cmake
#
# With -D PLATFORM=ON the layer itself is checked too, which must fail.

# Names in the symbol tables of ELF. The reason follows each of them.
set(forbidden
    "pthread_(create|join|detach|mutex|cond|rwlock|spin|barrier|once|key|setspecific|getspecific|kill)" # threads
    "sem_(init|wait|post|timedwait|trywait)"                 # semaphores
    "futex|syscall"                                          # the kernel itself
    "clock_gettime|clock_nanosleep|gettimeofday|nanosleep|usleep|sleep|time|times|clock|timer_create|setitimer" # time
    "sched_yield|poll|ppoll|select|epoll_wait"               # waiting
    "_ZNSt6chrono3_V212(system|steady)_clock3nowEv"          # std::chrono
    "_ZNSt6thread.*|_ZNSt18condition_variable.*|_ZSt9call_once.*|_ZNSt12__basic_file.*wait.*" # std::thread
    "_ZNSt13__future_base.*|_ZSt20__throw_system_errori"     # std::future, std::mutex
    "__cxa_guard_(acquire|release|abort)"                    # a function's static
    "__cxa_thread_atexit.*"                                  # a thread_local with a destructor
    "__atomic_.*|__sync_.*")                                 # interlocked operations that are none of the layer's
list(JOIN forbidden "|" forbidden)

file(STRINGS ${OBJECTS} objects)
if(NOT PLATFORM)
    list(FILTER objects EXCLUDE REGEX "/platform/")
endif()
# One call for all objects: "object:    U name"
execute_process(COMMAND ${NM} --print-file-name --undefined-only ${objects} OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} could not read the objects")
endif()
list(LENGTH objects count)
string(REGEX MATCHALL "[^\n]+" faults "${symbols}")
list(FILTER faults INCLUDE REGEX ": +[A-Za-z] (${forbidden})(@.*)?$")
list(TRANSFORM faults REPLACE ": +[A-Za-z] " ": ")

if(count LESS 10)
    message(FATAL_ERROR "only ${count} objects were found")
endif()
if(faults)
    list(JOIN faults "\n  " faults)
    message(FATAL_ERROR "these go around the platform layer:\n  ${faults}")
endif()
message(STATUS "${count} objects use the platform layer alone")
