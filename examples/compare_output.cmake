# Runs PROGRAM and fails unless it ends with 0 and prints on standard output what stands in EXPECTED.
execute_process(COMMAND "${PROGRAM}" OUTPUT_VARIABLE printed RESULT_VARIABLE result)
if(NOT result STREQUAL "0")
    message(FATAL_ERROR "ended with ${result} after printing:\n${printed}")
endif()
file(READ "${EXPECTED}" expected)
if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "printed:\n${printed}\nexpected:\n${expected}")
endif()
