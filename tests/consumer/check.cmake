# cmake -D BUILD=<build folder> -D SOURCE=<this folder> -D CXX=<compiler> -D GENERATOR=<generator>
#     [-D LAUNCHER=<compiler cache>] [-D FLAGS=<compiler flags>] [-D EXAMPLES=<folder of the examples>] -P check.cmake
#
# Installs the libraries of the build into a prefix of its own, moves that, and builds and runs the consumer against
# it. If EXAMPLES is given, builds the examples alone against it, runs their tests, and installs and starts the playout.

set(work ${BUILD}/consumer)
file(REMOVE_RECURSE ${work})

function(do)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE printed RESULT_VARIABLE status)
    if(status)
        message(NOTICE "${printed}")
        message(FATAL_ERROR "This has failed with ${status}: ${ARGN}")
    endif()
endfunction()

function(install component)
    do(${CMAKE_COMMAND} --install ${BUILD} --prefix ${work}/first --component ${component})
endfunction()

file(STRINGS ${SOURCE}/../../CMakeLists.txt version REGEX "^project[(]")
string(REGEX REPLACE ".* VERSION ([0-9.]+) .*" "\\1" version "${version}")
load_cache(${BUILD} READ_WITH_PREFIX built_ BUILD_SHARED_LIBS)

# What runs a program, and no more. A program that contains archives needs nothing.
install(runtime)
file(GLOB_RECURSE installed ${work}/first/*)
list(TRANSFORM installed REPLACE ".*/" "")
list(SORT installed)
set(expected "")
if(built_BUILD_SHARED_LIBS)
    string(REGEX REPLACE ".*[.]so[.]([0-9]+);.*" "\\1" abi "${installed}")
    foreach(library IN ITEMS libzvbase libzvresmgt)
        list(APPEND expected ${library}.so.${abi} ${library}.so.${version})
    endforeach()
endif()
if(NOT installed STREQUAL expected)
    message(FATAL_ERROR "The component runtime has ${installed}, not ${expected}")
endif()

install(development)
if(EXAMPLES)
    install(playout)
endif()
file(RENAME ${work}/first ${work}/prefix)
file(GLOB_RECURSE packages ${work}/prefix/*/zvresmgt.pc)
list(GET packages 0 package)
get_filename_component(package_folder ${package} DIRECTORY)
get_filename_component(library_folder ${package_folder} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${package_folder})
set(ENV{LD_LIBRARY_PATH} ${library_folder})

function(build source folder)
    do(${CMAKE_COMMAND} -S ${source} -B ${folder} -G ${GENERATOR} -D CMAKE_PREFIX_PATH=${work}/prefix
        -D EXPECTED_VERSION=${version}
        -D CMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}" "-DCMAKE_CXX_FLAGS=${FLAGS}")
    do(${CMAKE_COMMAND} --build ${folder})
endfunction()

build(${SOURCE} ${work}/build)
do(${work}/build/by_package)
do(${work}/build/by_pkg_config)
unset(ENV{LD_LIBRARY_PATH})
do(${work}/build/by_run_path)
execute_process(COMMAND ${work}/build/idle OUTPUT_VARIABLE printed COMMAND_ERROR_IS_FATAL ANY)
if(NOT printed MATCHES "^libZVresmgt ")
    message(FATAL_ERROR "A program that uses nothing of libzvresmgt is without its packages: ${printed}")
endif()

if(EXAMPLES)
    build(${EXAMPLES} ${work}/examples)
    do(${CMAKE_CTEST_COMMAND} --test-dir ${work}/examples --no-tests=error --output-on-failure)
    do(${work}/prefix/bin/zvplayout --help)
endif()
