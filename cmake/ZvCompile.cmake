# How everything here is compiled: one interface target, zv_compile, that every target of the project links.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ${PROJECT_IS_TOP_LEVEL})
if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

if(ZV_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    find_program(zv_ccache ccache NO_CACHE)
    if(zv_ccache)
        set(CMAKE_CXX_COMPILER_LAUNCHER ${zv_ccache})
    endif()
endif()

find_package(Threads REQUIRED)

# A compiler cache may hand the compiler paths relative to the build folder.
file(RELATIVE_PATH zv_root_from_build ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})

add_library(zv_compile INTERFACE)
target_compile_features(zv_compile INTERFACE cxx_std_20)
target_compile_options(zv_compile INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wunused
    $<$<BOOL:${ZV_WERROR}>:-Werror>
    # Reports name files by their path from the project's root, independently of the build folder.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=../
    -ffile-prefix-map=${zv_root_from_build}=../
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety -Wexit-time-destructors>
    $<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)
# On machines of 32 bits, the C library has two forms of dates, times and files. The older one ends in 2038, and fails for
# a file whose number needs more than 32 bits. No header of the libraries depends on the form.
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND NOT WIN32)
    target_compile_definitions(zv_compile INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
    # The older arithmetic of i386 computes with more digits than a `double` keeps. A value then differs from itself when it
    # has been stored, and a beat from its place on the grid.
    include(CheckCXXSymbolExists)
    check_cxx_symbol_exists(__i386__ cstddef ZV_IS_I386)
    if(ZV_IS_I386)
        target_compile_options(zv_compile INTERFACE -msse2 -mfpmath=sse)
    endif()
endif()
# The sources of a unity build include each other. What is hidden in one of them is no part of a header, and a local name
# may be that of another source's hidden one.
set(zv_unity_options -Wno-shadow $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local> $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
target_compile_options(zv_compile INTERFACE "$<$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>:${zv_unity_options}>")
# Operations on shared words are inline: the simulated form of all that uses them is a build of its own.
if(ZV_SIMULATED)
    target_compile_definitions(zv_compile INTERFACE ZV_PLATFORM_SIMULATED)
endif()
# The services are those of Linux, on a simulated kernel.
if(ZV_KERNEL STREQUAL simulated)
    target_compile_definitions(zv_compile INTERFACE ZV_KERNEL_SIMULATED)
endif()
# Each access to plain data calls a function of the scheduler, by which it finds data races. The calls are those of the
# thread sanitizer, which is not linked.
if(ZV_RACES)
    # Strings and streams are compiled with the checks, too.
    set(zv_races_definitions ZV_RACES _GLIBCXX_EXTERN_TEMPLATE=0)
    set(zv_races_compile_options
        -fsanitize=thread --param=tsan-instrument-func-entry-exit=0 -U__SANITIZE_THREAD__ -Wno-tsan)
    target_compile_definitions(zv_compile INTERFACE ${zv_races_definitions})
    target_compile_options(zv_compile INTERFACE ${zv_races_compile_options})
    set(zv_races_link_options malloc calloc realloc aligned_alloc posix_memalign free mmap __cxa_guard_release)
    list(TRANSFORM zv_races_link_options PREPEND LINKER:--wrap=)
    target_link_options(zv_compile INTERFACE ${zv_races_link_options})
endif()
# Compiles headers that most sources need once for all sources of a target. They take half of the time in which a source
# compiles. The preset clang leaves them out, and so finds a source that does not include what it needs.
function(zv_precompile_standard_headers target)
    if(ZV_RACES) # before all others
        target_precompile_headers(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src/platform/scheduler/checkedCopies.h)
    endif()
    target_precompile_headers(${target} PRIVATE <algorithm> <cstring> <deque> <functional> <limits> <list> <optional>
        <queue> <sstream> <stdexcept> <string> <unordered_map> <vector>)
endfunction()

if(ZV_SANITIZE)
    target_compile_options(zv_compile INTERFACE -fsanitize=${ZV_SANITIZE} -fno-omit-frame-pointer)
    if(NOT ZV_SANITIZE STREQUAL "thread")
        target_compile_options(zv_compile INTERFACE -fno-sanitize-recover=all)
    endif()
    target_link_options(zv_compile INTERFACE -fsanitize=${ZV_SANITIZE})
endif()
