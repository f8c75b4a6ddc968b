# How test programs are built for Windows. ZvTests.cmake includes this module.

include(CrossTests)

set(ZV_TEST_SYSTEM_LIBRARIES rpcrt4 winmm synchronization)
set(ZV_TEST_DEFINITIONS
    # Nothing is imported from the libraries: the programs contain their objects.
    ZVBASE_BUILDING ZVRESMGT_BUILDING
    # Without a futex, the semaphores that GCC makes of its own waits lose wake-ups.
    _GLIBCXX_USE_POSIX_SEMAPHORE=1)

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
    zv_read_left_out(${folder} left_out)
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
