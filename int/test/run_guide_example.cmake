# Runs PROGRAM, through EMULATOR when there is one, compares what it writes with the file EXPECTED and notes the outcome
# in RESULT in the form in which GoogleTest programs do, so that it is counted among the tests.
execute_process(COMMAND ${EMULATOR} "${PROGRAM}" OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE status)
string(REPLACE "\r\n" "\n" output "${output}")
file(READ "${EXPECTED}" expected)
get_filename_component(name "${EXPECTED}" NAME_WE)
set(failures "[]")
if(NOT status EQUAL 0 OR NOT output STREQUAL expected)
    set(failures "[{\"failure\": \"wrote something else\"}]")
endif()
file(WRITE "${RESULT}" "{\"testsuites\": [{\"testsuite\": [{\"classname\": \"Guide\", \"name\": \"${name}\", \
\"status\": \"RUN\", \"result\": \"COMPLETED\", \"failures\": ${failures}}]}]}\n")
if(NOT failures STREQUAL "[]")
    message(FATAL_ERROR "status ${status}; expected:\n${expected}\nwritten:\n${output}\n${errors}")
endif()
