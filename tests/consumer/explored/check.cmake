# cmake -D BUILD=<build folder of the simulated form> -D SOURCE=<this folder> -D EXAMPLE=<folder of the example>
#     -D VERSION=<version> -D CXX=<compiler> -D GENERATOR=<generator> [-D LAUNCHER=<compiler cache>] -P check.cmake
#
# Installs the component `explore` into a prefix of its own, moves that, and builds and runs the example and the
# consumer against it.

set(work ${BUILD}/explored)
file(REMOVE_RECURSE ${work})

function(do)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

function(build source folder)
    do(${CMAKE_COMMAND} -S ${source} -B ${folder} -G ${GENERATOR} -D CMAKE_PREFIX_PATH=${work}/prefix
        -D EXPECTED_VERSION=${VERSION} -D CMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}")
    do(${CMAKE_COMMAND} --build ${folder})
endfunction()

# Runs a program, which must end with that status and print what matches. `printed` becomes its output.
function(expect status pattern)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
    if(NOT result EQUAL status OR NOT output MATCHES "${pattern}")
        message(FATAL_ERROR "${ARGN}\nshould have ended with ${status} and printed \"${pattern}\". "
            "It has ended with ${result} and printed:\n${output}")
    endif()
    set(printed "${output}" PARENT_SCOPE)
endfunction()

do(${CMAKE_COMMAND} --install ${BUILD} --component explore --prefix ${work}/first)
file(RENAME ${work}/first ${work}/prefix)

build(${EXAMPLE} ${work}/example)
do(${CMAKE_CTEST_COMMAND} --test-dir ${work}/example --no-tests=error)

build(${SOURCE} ${work}/consumer)
set(program ${work}/consumer/deadlock)
expect(0 "OneOrder .* nothing" ${program} --test OneOrder)
expect(0 "TimeIsVirtual .* nothing" ${program} --test TimeIsVirtual)
expect(1 "FindsNothing has not found \"does not hold\"" ${program} --test FindsNothing)
set(report "deadlock in TwoOrders:.*main: waits for mutex.*takeBoth [^\n]*deadlock.cpp:11\n.*holds mutex")
expect(1 "${report}" ${program} --test TwoOrders)
# The schedule in the report has the same finding again.
string(REGEX MATCH "--replay '([^']+)'" schedule "${printed}")
expect(0 "takeBoth [^\n]*deadlock.cpp:11.*\ndeadlock" ${program} --replay ${CMAKE_MATCH_1})
expect(0 "OneOrder .* nothing" ${program} --test OneOrder --check --schedules 10 --seed 5)
# The last line counts the schedules of both programs, each of which has two runs of each seed.
expect(0 "\n40 schedules, [1-9][0-9]* steps, [1-9][0-9]* steps/s\n$" ${program} --test i --check --schedules 10)

expect(0 "usage: " ${program} --help)
expect(2 "unknown option --other" ${program} --other)
expect(2 "--schedules takes a number from 1, not \"many\"" ${program} --schedules many)
expect(2 "--seed takes a value" ${program} --seed)
expect(2 "there is no program \"Another\"" ${program} --test Another)
expect(2 "this is no schedule: Another:random" ${program} --replay Another:random)
