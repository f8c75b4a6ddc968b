# Writes a source with the import pointers of what the objects of one library import from the other, for a program
# that contains both.
#
#     cmake -D NM=nm -D OBJECTS=<file with a list of objects> -D OUTPUT=<source> -P imports.cmake

file(STRINGS ${OBJECTS} objects)
execute_process(COMMAND ${NM} --undefined-only --no-sort -j ${objects} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "__imp__Z[^ \n]*2Zv[^ \n]*\n" names "${symbols}")
list(TRANSFORM names STRIP)
list(REMOVE_DUPLICATES names)
list(SORT names)
set(text "// Generated: what one library imports from the other.\n__asm__(\".section .rdata\\n.balign 8\\n\");\n")
foreach(name IN LISTS names)
    string(REGEX REPLACE "^__imp_" "" symbol ${name})
    string(APPEND text "__asm__(\".globl ${name}\\n${name}: .quad ${symbol}\\n\");\n")
endforeach()
file(WRITE ${OUTPUT} "${text}")
