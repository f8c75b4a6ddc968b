# Functions that make test programs and other tests out of the folders of tests/.
#
# zv_add_test_program(FOLDER [ALLOCATIONS] [BASE_ONLY] [HALVES] [EXCLUDE source...] [DEFINE definition...])
#     Builds all sources of a folder, with GoogleTest and the objects of both libraries, as the program test_FOLDER, and
#     adds the test FOLDER. The objects bring the statics of the packages along, and hidden classes can be tested.
#       ALLOCATIONS  counts the allocations of a thread and lets them fail (testing/allocations.h)
#       BASE_ONLY    links libzvbase alone, so that no package of libzvresmgt runs
#       HALVES       adds two tests, FOLDER_0 and FOLDER_1, of half the cases each
#       EXCLUDE      sources that belong to other programs
#       DEFINE       definitions of the preprocessor
#     If the folder has a file wrapped.txt, calls of the functions that it lists go to the folder's own `__wrap_` forms,
#     for example to a service that refuses.
#
# zv_require_test_programs([FOLDER...])
#     Fails if a folder other than these has tests and no program.
#
# zv_add_refused_sources(FOLDER)
#     Adds a test for each source of a folder. The source must not compile. Its first line is a comment with a part of
#     the compiler's message.
#
# zv_add_object_test()
#     Adds the test of what the objects above the platform layer call, and one that shows that it finds a call.

if(WIN32)
    include(WindowsTests)
else()
    if(ZV_MACHINE)
        include(CrossTests)
    else()
        find_package(GTest REQUIRED)

        function(zv_read_left_out folder left_out)
            set(${left_out} "" PARENT_SCOPE)
        endfunction()

        function(zv_add_folder_test folder name)
            add_test(NAME ${folder} COMMAND ${name})
        endfunction()
    endif()

    # Links a test program from SOURCES and OBJECTS. COMPILED becomes the target that compiles the sources.
    function(zv_link_test_program name compiled)
        cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;OBJECTS;WRAPPED")
        list(GET arg_SOURCES 0 first)
        get_filename_component(folder ${first} DIRECTORY)
        zv_read_left_out(${folder} left_out)
        list(REMOVE_ITEM arg_SOURCES ${left_out})
        add_executable(${name} ${arg_SOURCES} ${arg_OBJECTS} $<TARGET_OBJECTS:zv_test_main>)
        zv_wrap(${name} ${arg_WRAPPED})
        set(${compiled} ${name} PARENT_SCOPE)
    endfunction()
endif()

# Lets the linker wrap functions. Their names are those of 64 bits. On a machine of 32 bits, a service has another name
# because of its SIZE_T and DWORD_PTR, and gets the name that the tests use. A function of the C library has another name
# because of its 64-bit times and limits, and the tests use that.
function(zv_wrap target)
    foreach(symbol IN LISTS ARGN)
        set(here ${symbol})
        if(CMAKE_SIZEOF_VOID_P EQUAL 4)
            if(symbol MATCHES "^(_ZN10ZvPlatform[0-9]+[A-Za-z]+E)(.*m.*)$")
                string(REPLACE m j parameters ${CMAKE_MATCH_2})
                set(here ${CMAKE_MATCH_1}${parameters})
                target_link_options(${target} PRIVATE
                    LINKER:--defsym=__wrap_${here}=__wrap_${symbol} LINKER:--defsym=__real_${symbol}=__real_${here})
            elseif(symbol STREQUAL clock_nanosleep)
                set(here __clock_nanosleep_time64)
            elseif(symbol STREQUAL getrlimit)
                set(here getrlimit64)
            endif()
        endif()
        target_link_options(${target} PRIVATE LINKER:--wrap=${here})
    endforeach()
endfunction()

# zv_add_halves(NAME PROGRAM) adds a program of GoogleTest as two tests of half its cases each, which ctest can run at the
# same time. TESTS becomes the list of their names.
function(zv_add_halves name program tests)
    foreach(half RANGE 1)
        add_test(NAME ${name}_${half} COMMAND ${program})
        set_property(TEST ${name}_${half} APPEND PROPERTY ENVIRONMENT GTEST_TOTAL_SHARDS=2 GTEST_SHARD_INDEX=${half})
    endforeach()
    set(${tests} ${name}_0 ${name}_1 PARENT_SCOPE)
endfunction()

# WRAPPED becomes the list of functions in the folder's file wrapped.txt.
function(zv_read_wrapped folder wrapped)
    set(functions "")
    if(EXISTS ${folder}/wrapped.txt)
        file(STRINGS ${folder}/wrapped.txt functions)
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${folder}/wrapped.txt)
    endif()
    set(${wrapped} "${functions}" PARENT_SCOPE)
endfunction()

# Gives a target the includes, libraries and definitions of all tests.
function(zv_compile_as_test target)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${target} PRIVATE zv_compile GTest::gtest GTest::gmock Threads::Threads
        ${ZV_TEST_SYSTEM_LIBRARIES})
    target_compile_definitions(${target} PRIVATE ${ZV_TEST_DEFINITIONS})
    # The libraries are tested as they are shipped. The tests themselves compile in half the time without the optimiser.
    # What the address sanitizer adds to their code takes the optimiser longer than all the rest.
    target_compile_options(${target} PRIVATE $<$<CONFIG:RelWithDebInfo>:-O0>)
    if(ZV_SANITIZE MATCHES address)
        target_compile_options(${target} PRIVATE -O0)
    endif()
endfunction()

# The headers of GoogleTest take a quarter of the time in which a test compiles. The first program compiles them for all.
# It must have no definitions of its own.
function(zv_precompile_headers target)
    get_property(first GLOBAL PROPERTY ZV_FIRST_TEST_PROGRAM)
    if(first)
        target_precompile_headers(${target} REUSE_FROM ${first})
    else()
        target_precompile_headers(${target} PRIVATE <gmock/gmock.h> <gtest/gtest.h> <functional> <thread>)
        set_property(GLOBAL PROPERTY ZV_FIRST_TEST_PROGRAM ${target})
    endif()
endfunction()

function(zv_add_test_program folder)
    cmake_parse_arguments(PARSE_ARGV 1 arg "ALLOCATIONS;BASE_ONLY;HALVES" "" "EXCLUDE;DEFINE")
    set(name test_${folder})
    file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
    list(TRANSFORM arg_EXCLUDE PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/)
    list(REMOVE_ITEM sources ${arg_EXCLUDE})
    set(objects $<TARGET_OBJECTS:zvbase_objects>)
    if(NOT arg_BASE_ONLY)
        list(APPEND objects $<TARGET_OBJECTS:zvresmgt_objects>)
    endif()
    zv_read_wrapped(${CMAKE_CURRENT_SOURCE_DIR}/${folder} wrapped)

    zv_link_test_program(${name} compiled SOURCES ${sources} OBJECTS ${objects} WRAPPED ${wrapped})
    if(arg_ALLOCATIONS)
        target_sources(${name} PRIVATE $<TARGET_OBJECTS:zv_test_allocations>)
    endif()
    zv_compile_as_test(${compiled})
    target_compile_definitions(${compiled} PRIVATE ${arg_DEFINE})
    if(NOT WIN32)
        zv_precompile_headers(${compiled})
    endif()
    set(tests ${folder})
    if(arg_HALVES)
        zv_add_halves(${folder} ${name} tests)
    else()
        zv_add_folder_test(${folder} ${name})
    endif()
    # The limit is for tests that hang. Under a sanitizer some programs need minutes. The thread sanitizer would let
    # each program wait for a second at its end. A size that no machine has is refused, as without a sanitizer.
    set_tests_properties(${tests} PROPERTIES TIMEOUT 1800)
    if(ZV_SANITIZE STREQUAL thread)
        set_property(TEST ${tests} APPEND PROPERTY ENVIRONMENT
            TSAN_OPTIONS=atexit_sleep_ms=0:allocator_may_return_null=1)
    elseif(ZV_SANITIZE)
        set_property(TEST ${tests} APPEND PROPERTY ENVIRONMENT ASAN_OPTIONS=allocator_may_return_null=1)
    endif()
endfunction()

function(zv_require_test_programs)
    file(GLOB sources RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} CONFIGURE_DEPENDS */*Test.cpp)
    foreach(source IN LISTS sources)
        get_filename_component(folder ${source} DIRECTORY)
        if(NOT TARGET test_${folder} AND NOT folder IN_LIST ARGN)
            message(FATAL_ERROR "tests/CMakeLists.txt has no zv_add_test_program(${folder})")
        endif()
    endforeach()
endfunction()

function(zv_add_refused_sources folder)
    file(GLOB refused CONFIGURE_DEPENDS ${folder}/*.cpp)
    foreach(source IN LISTS refused)
        get_filename_component(name ${source} NAME_WE)
        file(STRINGS ${source} message LIMIT_COUNT 1)
        string(REGEX REPLACE "^// " "" message "${message}")
        # The headers are included as an installed tree has them.
        add_test(NAME refused_${name} COMMAND ${CMAKE_CXX_COMPILER} -std=c++20 -fsyntax-only
            -isystem ${PROJECT_SOURCE_DIR}/src ${source})
        set_tests_properties(refused_${name} PROPERTIES PASS_REGULAR_EXPRESSION "${message}")
    endforeach()
endfunction()

function(zv_add_object_test)
    set(list ${CMAKE_CURRENT_BINARY_DIR}/objects.txt)
    # Precompiled headers are among the objects of a target.
    set(objects $<TARGET_OBJECTS:zvbase_objects> $<TARGET_OBJECTS:zvresmgt_objects>)
    file(GENERATE OUTPUT ${list} CONTENT "$<JOIN:$<FILTER:${objects},EXCLUDE,[.]gch$>,\n>\n")
    set(script -D NM=${CMAKE_NM} -D OBJECTS=${list} -P ${CMAKE_CURRENT_SOURCE_DIR}/architecture/objects.cmake)
    add_test(NAME objects COMMAND ${CMAKE_COMMAND} ${script})
    add_test(NAME objects_finds COMMAND ${CMAKE_COMMAND} -D PLATFORM=ON ${script})
    set_tests_properties(objects_finds PROPERTIES PASS_REGULAR_EXPRESSION
        "(threads|bearer).cpp.o: pthread_create")
endfunction()
