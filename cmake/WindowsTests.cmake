# How test programs are built for Windows and run under Wine. ZvTests.cmake includes this module.

set(ZV_TEST_SYSTEM_LIBRARIES rpcrt4 winmm synchronization)
set(ZV_TEST_DEFINITIONS
    # Nothing is imported from the libraries: the programs contain their objects.
    ZVBASE_BUILDING ZVRESMGT_BUILDING
    # Without a futex, the semaphores that GCC makes of its own waits lose wake-ups.
    _GLIBCXX_USE_POSIX_SEMAPHORE=1)

# GoogleTest comes as sources: Debian's package googletest has them here.
set(ZV_GOOGLETEST /usr/src/googletest CACHE PATH "GoogleTest's sources")
if(NOT EXISTS ${ZV_GOOGLETEST}/googletest/src/gtest-all.cc)
    message(FATAL_ERROR "GoogleTest's sources are not in ${ZV_GOOGLETEST}")
endif()
foreach(part IN ITEMS gtest:googletest gmock:googlemock)
    string(REGEX REPLACE ":.*" "" library ${part})
    string(REGEX REPLACE ".*:" "" folder ${part})
    add_library(zv_${library} STATIC ${ZV_GOOGLETEST}/${folder}/src/${library}-all.cc)
    add_library(GTest::${library} ALIAS zv_${library})
    target_include_directories(zv_${library} SYSTEM PUBLIC ${ZV_GOOGLETEST}/${folder}/include)
    target_include_directories(zv_${library} PRIVATE ${ZV_GOOGLETEST}/${folder})
    target_compile_options(zv_${library} PRIVATE -w)
endforeach()
target_link_libraries(zv_gmock PUBLIC zv_gtest)

# What a folder's wine.txt says: LEFT_OUT becomes the sources that are not built.
function(zv_read_wine_list file left_out)
    set(sources "")
    if(EXISTS ${file})
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
        file(STRINGS ${file} sources REGEX "^[^#].*\\.cpp$")
        get_filename_component(folder ${file} DIRECTORY)
        foreach(source IN LISTS sources)
            if(NOT EXISTS ${folder}/${source})
                message(FATAL_ERROR "${file}: there is no ${source}")
            endif()
        endforeach()
        list(TRANSFORM sources PREPEND ${folder}/)
    endif()
    set(${left_out} "${sources}" PARENT_SCOPE)
endfunction()

# The system's services are imported: a call uses the pointer __imp_X. The pointers of the services to be wrapped are
# renamed in the archive PARTS, so that no other calls are redirected, such as those of the C library. The generated
# source defines these pointers, and the __real_ functions under the names that they have on other systems. The system's
# services have names with a capital, except timeGetTime. The others are inline functions of platform/services.h there.
function(zv_wrap_services parts wrapped source)
    set(text "// Generated: calls of services, on their way to the tests.\n")
    set(renamed "")
    foreach(symbol IN LISTS wrapped)
        if(NOT symbol MATCHES "^_ZN10ZvPlatform([0-9]+)([A-Z].*|timeGetTime.*)$")
            continue()
        endif()
        string(SUBSTRING ${CMAKE_MATCH_2} 0 ${CMAKE_MATCH_1} service)
        # mingw-w64's headers leave some to be called by their names, without the pointer.
        string(APPEND renamed "__imp_${service} __wrapped_imp_${service}\n" "${service} __wrap_${symbol}\n")
        string(APPEND text
            "__asm__(\".data\\n.globl __wrapped_imp_${service}\\n.balign 8\\n\"\n"
            "        \"__wrapped_imp_${service}: .quad __wrap_${symbol}\\n\"\n"
            "        \".text\\n.globl __real_${symbol}\\n\"\n"
            "        \"__real_${symbol}: jmp *__imp_${service}(%rip)\\n\");\n")
    endforeach()
    set(names ${CMAKE_CURRENT_BINARY_DIR}/${parts}.names)
    file(CONFIGURE OUTPUT ${names} CONTENT "${renamed}" @ONLY)
    file(CONFIGURE OUTPUT ${source} CONTENT "${text}" @ONLY)
    add_custom_command(TARGET ${parts} POST_BUILD VERBATIM
        COMMAND ${CMAKE_OBJCOPY} --redefine-syms=${names} $<TARGET_FILE:${parts}>)
    set_property(TARGET ${parts} APPEND PROPERTY LINK_DEPENDS ${names})
endfunction()

# The objects of libzvresmgt import what they use of libzvbase. A test program contains both.
set(zv_imports ${CMAKE_CURRENT_BINARY_DIR}/imports.cpp)
file(GENERATE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/importing.txt CONTENT
    "$<JOIN:$<TARGET_OBJECTS:zvresmgt_objects>,\n>\n")
add_custom_command(OUTPUT ${zv_imports} DEPENDS zvresmgt_objects $<TARGET_OBJECTS:zvresmgt_objects> VERBATIM
    COMMAND ${CMAKE_COMMAND} -D NM=${CMAKE_NM} -D OBJECTS=${CMAKE_CURRENT_BINARY_DIR}/importing.txt
        -D OUTPUT=${zv_imports} -P ${PROJECT_SOURCE_DIR}/cmake/imports.cmake)
add_library(zv_test_imports OBJECT ${zv_imports})

# The waits of all code in a test program, on their way to testing/waits.cpp, which records the threads that sleep.
set(zv_test_waits WaitForSingleObject WaitForSingleObjectEx WaitForMultipleObjects WaitOnAddress EnterCriticalSection)
list(TRANSFORM zv_test_waits PREPEND __imp_)
list(APPEND zv_test_waits WaitOnAddress)
add_library(zv_test_waits OBJECT testing/waits.cpp)
target_link_libraries(zv_test_waits PRIVATE zv_compile)
target_include_directories(zv_test_waits PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})

# Links a test program from SOURCES and OBJECTS, without the sources that the folder's wine.txt lists. COMPILED becomes
# the target that compiles the sources.
function(zv_link_test_program name compiled)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;OBJECTS;WRAPPED")
    list(GET arg_SOURCES 0 first)
    get_filename_component(folder ${first} DIRECTORY)
    zv_read_wine_list(${folder}/wine.txt left_out)
    list(REMOVE_ITEM arg_SOURCES ${left_out})
    set(main $<TARGET_OBJECTS:zv_test_main> $<TARGET_OBJECTS:zv_test_waits>)
    if(arg_OBJECTS MATCHES zvresmgt_objects)
        list(APPEND main $<TARGET_OBJECTS:zv_test_imports>)
    endif()
    # The system's own libraries call these. The sources that would replace them are left out.
    list(FILTER arg_WRAPPED EXCLUDE REGEX "^pthread_")

    if(arg_WRAPPED MATCHES "_ZN10ZvPlatform")
        set(parts ${name}_parts)
        set(services ${CMAKE_CURRENT_BINARY_DIR}/${name}Services.cpp)
        add_library(${parts} STATIC ${arg_SOURCES} ${arg_OBJECTS})
        zv_wrap_services(${parts} "${arg_WRAPPED}" ${services})
        list(FILTER arg_WRAPPED EXCLUDE REGEX "^_ZN10ZvPlatform")
        add_executable(${name} ${services} ${main})
        target_link_libraries(${name} PRIVATE $<LINK_LIBRARY:WHOLE_ARCHIVE,${parts}>)
        set(${compiled} ${parts} PARENT_SCOPE)
    else()
        add_executable(${name} ${arg_SOURCES} ${arg_OBJECTS} ${main})
        set(${compiled} ${name} PARENT_SCOPE)
    endif()
    set(wrapped ${arg_WRAPPED} ${zv_test_waits})
    list(TRANSFORM wrapped PREPEND LINKER:--wrap=)
    target_link_options(${name} PRIVATE ${wrapped})
endfunction()

# Runs a test program without the tests that the folder's wine.txt lists, and, labelled left-out, with them alone.
function(zv_add_folder_test folder name)
    set(list ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/wine.txt)
    set(under_wine sh ${CMAKE_CURRENT_SOURCE_DIR}/underWine.sh)
    set(program ${list} ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}>)
    add_test(NAME ${folder} COMMAND ${under_wine} ${program})
    if(EXISTS ${list})
        add_test(NAME ${folder}_left_out COMMAND ${under_wine} --left-out ${program})
        set_tests_properties(${folder}_left_out PROPERTIES LABELS left-out TIMEOUT 1200)
    endif()
endfunction()
