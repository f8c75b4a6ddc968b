# Makes the sources of a known bug:
#     cmake -D PROGRAM=patch -D PATCH=file -D SOURCE=root -D TARGET=folder -D "FILES=path..." -P apply.cmake
# Copies the files, whose paths are relative to the root, and applies the patch to the copies.

file(REMOVE_RECURSE ${TARGET})
foreach(file IN LISTS FILES)
    configure_file(${SOURCE}/${file} ${TARGET}/${file} COPYONLY)
endforeach()
execute_process(COMMAND ${PROGRAM} --strip=1 --fuzz=0 --batch --directory=${TARGET} --input=${PATCH}
    OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE failure)
if(failure)
    cmake_path(GET PATCH FILENAME name)
    message(FATAL_ERROR "The known bug tests/simulated/bugs/${name} no longer fits the source that it changes.\n${output}"
        "Make the patch anew for today's source. docs/simulated-tests.md says how.")
endif()
