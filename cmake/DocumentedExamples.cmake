# Compiles the examples in the comments of public headers and in documents: a source for each package is made of them.
# The compiler's errors name the header or the document.

set(zv_extractor ${PROJECT_SOURCE_DIR}/tests/architecture)
add_executable(extract_examples
    ${zv_extractor}/extractExamples.cpp ${zv_extractor}/examples.cpp ${zv_extractor}/comments.cpp)
target_include_directories(extract_examples PRIVATE ${PROJECT_SOURCE_DIR}/tests)
target_link_libraries(extract_examples PRIVATE zv_compile)
# Its regular expressions take longer to optimise than to run.
target_compile_options(extract_examples PRIVATE -O0 -g0)
add_library(documented_examples OBJECT)
target_include_directories(documented_examples PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(documented_examples PRIVATE zv_compile)
# An example leaves names unused, and a `main` that is in a namespace here has no return.
target_compile_options(documented_examples PRIVATE -O0 -g0 -Wno-unused-variable
    -Wno-unused-but-set-variable -Wno-unused-function -Wno-unused-parameter -Wno-return-type)
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/examples)

# zv_add_examples(NAME UMBRELLA FILE...) compiles the examples of files that need that header.
function(zv_add_examples name umbrella)
    set(output ${CMAKE_CURRENT_BINARY_DIR}/examples/${name}.cpp)
    add_custom_command(OUTPUT ${output}
        COMMAND extract_examples ${PROJECT_SOURCE_DIR} ${output} ${umbrella} ${ARGN}
        DEPENDS extract_examples ${ARGN} VERBATIM)
    target_sources(documented_examples PRIVATE ${output})
endfunction()

# zv_add_package_examples(FOLDER UMBRELLA) does so for the public headers of a folder of src/.
function(zv_add_package_examples folder umbrella)
    file(GLOB_RECURSE headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${folder}/*.h)
    list(FILTER headers EXCLUDE REGEX "\\.private\\.h$")
    get_filename_component(name ${folder} NAME)
    zv_add_examples(${name} ${umbrella} ${headers})
endfunction()

zv_add_package_examples(zvbase zvbase/zvbase.h)
zv_add_package_examples(explore explore/explore.h)
file(GLOB zv_packages LIST_DIRECTORIES true RELATIVE ${PROJECT_SOURCE_DIR}/src CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/src/resmgt/*)
list(FILTER zv_packages EXCLUDE REGEX "\\.(h|cpp)$")
foreach(package IN LISTS zv_packages)
    zv_add_package_examples(${package} ${package}.h)
endforeach()
file(GLOB zv_documents CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
zv_add_examples(documents resmgt/resmgt.h ${PROJECT_SOURCE_DIR}/README.md ${zv_documents})
