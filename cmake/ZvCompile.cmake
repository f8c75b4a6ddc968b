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
# Operations on shared words are inline: the simulated form of all that uses them is a build of its own.
if(ZV_SIMULATED)
    target_compile_definitions(zv_compile INTERFACE ZV_PLATFORM_SIMULATED)
endif()
# The services are those of Linux, on a simulated kernel.
if(ZV_KERNEL STREQUAL simulated)
    target_compile_definitions(zv_compile INTERFACE ZV_KERNEL_SIMULATED)
endif()
# Compiles headers that most sources need once for all sources of a target. They take half of the time in which a source
# compiles. The preset clang leaves them out, and so finds a source that does not include what it needs.
function(zv_precompile_standard_headers target)
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
