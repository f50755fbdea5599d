# Runs the tool with ARGS (a list) and checks its exit status, standard output and standard
# error. Variables: TOOL, ARGS, STATUS, STDOUT and STDERR (exact texts, optional).
execute_process(COMMAND ${TOOL} ${ARGS}
                RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL STATUS)
    message(FATAL_ERROR "status ${status}, expected ${STATUS}; stderr: ${err}")
endif()
if(DEFINED STDOUT AND NOT out STREQUAL STDOUT)
    message(FATAL_ERROR "stdout:\n${out}\nexpected:\n${STDOUT}")
endif()
if(DEFINED STDERR AND NOT err STREQUAL STDERR)
    message(FATAL_ERROR "stderr:\n${err}\nexpected:\n${STDERR}")
endif()
