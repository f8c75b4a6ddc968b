# How test programs are built for another system or machine. ZV_MACHINE, which the toolchain file sets, is the name of the
# files that list what does not hold there: wine.txt, i386.txt or arm64.txt in each folder. ZvTests.cmake includes this
# module.

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

# What a folder's list says: LEFT_OUT becomes the sources that are not built.
function(zv_read_left_out folder left_out)
    set(file ${folder}/${ZV_MACHINE}.txt)
    set(sources "")
    if(EXISTS ${file})
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
        file(STRINGS ${file} sources REGEX "^[^#].*\\.cpp$")
        foreach(source IN LISTS sources)
            if(NOT EXISTS ${folder}/${source})
                message(FATAL_ERROR "${file}: there is no ${source}")
            endif()
        endforeach()
        list(TRANSFORM sources PREPEND ${folder}/)
    endif()
    set(${left_out} "${sources}" PARENT_SCOPE)
endfunction()

if(CMAKE_CROSSCOMPILING_EMULATOR MATCHES qemu)
    set(ZV_TEST_DEFINITIONS ZV_EMULATED)
endif()
# RESULT becomes the command that runs a test program. QEMU gets a script, whose path the program has as its name, so that
# the program can start itself again.
function(zv_command_of name result)
    set(words ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}>)
    if(CMAKE_CROSSCOMPILING_EMULATOR MATCHES qemu)
        list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
        set(words ${CMAKE_CURRENT_BINARY_DIR}/${name}.sh)
        file(GENERATE OUTPUT ${words}
            CONTENT "#!/bin/sh\nexec ${emulator} -0 \"$0\" '$<TARGET_FILE:${name}>' \"$@\"\n"
            FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    endif()
    set(${result} ${words} PARENT_SCOPE)
endfunction()

# Runs a test program without the tests that the folder's list names, and, labelled left-out, with them alone.
function(zv_add_folder_test folder name)
    set(list ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/${ZV_MACHINE}.txt)
    set(script sh ${CMAKE_CURRENT_SOURCE_DIR}/withoutLeftOut.sh)
    zv_command_of(${name} command)
    add_test(NAME ${folder} COMMAND ${script} ${list} ${command})
    if(EXISTS ${list})
        add_test(NAME ${folder}_left_out COMMAND ${script} --left-out ${list} ${command})
        set_tests_properties(${folder}_left_out PROPERTIES LABELS left-out TIMEOUT 1200)
    endif()
endfunction()
