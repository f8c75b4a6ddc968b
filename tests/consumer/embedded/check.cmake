# cmake -D LIBRARY=<source folder of the library> -D SOURCE=<this folder> -D WORK=<folder> -D CXX=<compiler>
#     -D GENERATOR=<generator> [-D WHOLE=ON] -P check.cmake
#
# Configures the project that contains the library, in both ways. If WHOLE is ON, builds and runs its program in one of
# them, installs the library with it, as archives, and lets the consumer use them.

file(REMOVE_RECURSE ${WORK})

function(do)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE printed)
    set(printed "${printed}" PARENT_SCOPE)
endfunction()

foreach(fetch IN ITEMS OFF ON)
    set(folder ${WORK}/${fetch})
    do(${CMAKE_COMMAND} -S ${SOURCE} -B ${folder} -G ${GENERATOR} -D LIBRARY=${LIBRARY} -D FETCH=${fetch}
        -D CMAKE_CXX_COMPILER=${CXX} -D CMAKE_CXX_FLAGS=-O0)
    do(${CMAKE_COMMAND} --build ${folder} --target help)
    if(printed MATCHES "verify_interface")
        message(FATAL_ERROR "The library adds a target that checks its headers")
    endif()
    do(${CMAKE_COMMAND} --install ${folder} --prefix ${WORK}/prefix)
endforeach()
if(EXISTS ${WORK}/prefix)
    message(FATAL_ERROR "The library is installed with the project that contains it")
endif()

if(WHOLE)
    do(${CMAKE_COMMAND} -D ZV_INSTALL=ON ${WORK}/ON)
    do(${CMAKE_COMMAND} --build ${WORK}/ON)
    do(${WORK}/ON/embedding)
    do(${CMAKE_COMMAND} -D BUILD=${WORK}/ON -D SOURCE=${SOURCE}/.. -D CXX=${CXX} -D GENERATOR=${GENERATOR}
        -P ${SOURCE}/../check.cmake)
endif()
