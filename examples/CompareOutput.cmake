# Runs PROGRAM (a list: emulator and program, or the program alone). Fails unless it exits with 0 and
# prints exactly the bytes of EXPECTED.

# The separator comes escaped, so that it passes through add_test() as part of one argument.
string(REPLACE "\\;" ";" PROGRAM "${PROGRAM}")
execute_process(COMMAND ${PROGRAM} RESULT_VARIABLE status OUTPUT_VARIABLE printed)
file(READ ${EXPECTED} expected)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "exit status ${status}, output:\n${printed}")
endif()
if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "printed:\n${printed}\nexpected:\n${expected}")
endif()
