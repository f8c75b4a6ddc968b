# Draws a chart with PROGRAM into the file DRAWN, and fails if CHART is another one.

execute_process(COMMAND ${PROGRAM} ${DRAWN} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files --ignore-eol ${DRAWN} ${CHART} RESULT_VARIABLE differs)
if(differs)
    message(FATAL_ERROR "${CHART} is not what its table gives. Draw it again with the target `charts`.")
endif()
