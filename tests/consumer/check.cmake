# cmake -D BUILD=<build folder> -D SOURCE=<this folder> -D VERSION=<version> -D CXX=<compiler>
#     -D GENERATOR=<generator> [-D LAUNCHER=<compiler cache>] [-D FLAGS=<compiler flags>]
#     [-D EXAMPLES=<folder of the examples>] -P check.cmake
#
# Installs the build into a prefix of its own, moves that, and builds and runs the consumer against it. If EXAMPLES is
# given, builds the examples alone against it and runs their tests.

set(work ${BUILD}/consumer)
file(REMOVE_RECURSE ${work})

function(do)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

do(${CMAKE_COMMAND} --install ${BUILD} --prefix ${work}/first)
file(RENAME ${work}/first ${work}/prefix)
file(GLOB_RECURSE packages ${work}/prefix/*/zvresmgt.pc)
list(GET packages 0 package)
get_filename_component(package_folder ${package} DIRECTORY)
get_filename_component(library_folder ${package_folder} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${package_folder})
set(ENV{LD_LIBRARY_PATH} ${library_folder})

function(build source folder)
    do(${CMAKE_COMMAND} -S ${source} -B ${folder} -G ${GENERATOR} -D CMAKE_PREFIX_PATH=${work}/prefix
        -D EXPECTED_VERSION=${VERSION}
        -D CMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}" "-DCMAKE_CXX_FLAGS=${FLAGS}")
    do(${CMAKE_COMMAND} --build ${folder})
endfunction()

build(${SOURCE} ${work}/build)
do(${work}/build/by_package)
do(${work}/build/by_pkg_config)
unset(ENV{LD_LIBRARY_PATH})
do(${work}/build/by_run_path)

if(EXAMPLES)
    build(${EXAMPLES} ${work}/examples)
    do(${CMAKE_CTEST_COMMAND} --test-dir ${work}/examples --no-tests=error)
endif()
