# tabulo_python_test(<label> <name> <script> SECONDS <n> [PYTHON <program>] [PROCESSORS <n>] [VARIABLES <NAME=value>...])
#
# Adds the test <label>/<name>: a script of Python's unittest about whole programs. It has a folder of its own, which the
# variable TABULO_TEST_FOLDER names.
find_program(TABULO_PYTHON python3 REQUIRED)
function(tabulo_python_test label name script)
    cmake_parse_arguments(PARSE_ARGV 3 given "" "SECONDS;PYTHON;PROCESSORS" "VARIABLES")
    set(test ${TABULO_TEST_PREFIX}${label}/${name})
    set(python ${TABULO_PYTHON})
    if(given_PYTHON)
        set(python ${given_PYTHON})
    endif()
    add_test(NAME ${test} COMMAND ${python} -B ${script} -v)
    if(TABULO_TEST_TIMEOUT GREATER given_SECONDS)
        set(given_SECONDS ${TABULO_TEST_TIMEOUT})
    endif()
    set_tests_properties(${test} PROPERTIES TIMEOUT ${given_SECONDS} LABELS "${label};family;process;slow"
        ENVIRONMENT "${given_VARIABLES};TABULO_TEST_FOLDER=${TABULO_TEST_WORK}/${label}/${name}")
    if(given_PROCESSORS)
        set_tests_properties(${test} PROPERTIES PROCESSORS ${given_PROCESSORS})
    endif()
endfunction()
