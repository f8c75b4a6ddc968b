# cmake -D PROGRAM=<program> -D SOURCE=<its source> -P compare.cmake
#
# Runs an example, and compares what it prints with the lines below "Prints:" in the first comment of its source.

file(READ ${SOURCE} source)
if(NOT source MATCHES "^(//[^\n]*\n)*// Prints:\n//\n((//     [^\n]*\n)+)\n")
    message(FATAL_ERROR "${SOURCE} does not say what it prints")
endif()
string(REGEX REPLACE "(^|\n)//     " "\\1" expected "${CMAKE_MATCH_2}")
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE printed RESULT_VARIABLE status)
if(NOT status EQUAL 0 OR NOT printed STREQUAL expected)
    message("It has printed:\n${printed}It should have printed:\n${expected}")
    message(FATAL_ERROR "${PROGRAM} has ended with ${status}, or has printed other lines than expected")
endif()
