# kivo_dev_test(NAME name COMMAND command... [FAULTS rule...] [OPTIONS option...] [EXPECT expectation] [STRICT])
#
# Adds a test that runs the command under kivo-dev, with ports and a state folder of its own, so that such tests run side
# by side. The command may begin with a target. FAULTS are rules for `kivo-dev run --fault`, OPTIONS its other options.
# The test fails if the command does, if no request meets the expectation (written as for `kivo-dev expect`), or, with
# STRICT, if a request breaks the contract. KIVO_DEV_EXECUTABLE is the kivo-dev to use; by default, the package's.

if(NOT TARGET kivo-dev)
    find_program(KIVO_DEV_EXECUTABLE kivo-dev HINTS "${PACKAGE_PREFIX_DIR}/bin")
    mark_as_advanced(KIVO_DEV_EXECUTABLE)
endif()

# Where kivo-dev is built beside the caller, its target; else the program that was found.
function(kivo_find_dev result)
    if(TARGET kivo-dev)
        set(${result} "$<TARGET_FILE:kivo-dev>" PARENT_SCOPE)
    elseif(KIVO_DEV_EXECUTABLE)
        set(${result} "${KIVO_DEV_EXECUTABLE}" PARENT_SCOPE)
    else()
        message(FATAL_ERROR "kivo_dev_test needs kivo-dev: install the package kivo-tools, or set KIVO_DEV_EXECUTABLE.")
    endif()
endfunction()

function(kivo_dev_test)
    cmake_parse_arguments(PARSE_ARGV 0 arg "STRICT" "NAME;EXPECT" "COMMAND;FAULTS;OPTIONS")
    if(arg_UNPARSED_ARGUMENTS OR NOT arg_NAME OR NOT arg_COMMAND)
        message(FATAL_ERROR "Write: kivo_dev_test(NAME name COMMAND command... "
            "[FAULTS rule...] [OPTIONS option...] [EXPECT expectation] [STRICT])")
    endif()
    kivo_find_dev(kivoDev)
    set(options --fresh ${arg_OPTIONS})
    if(arg_STRICT)
        list(APPEND options --strict)
    endif()
    foreach(rule IN LISTS arg_FAULTS)
        list(APPEND options --fault "${rule}")
    endforeach()
    list(POP_FRONT arg_COMMAND program)
    if(TARGET "${program}")
        set(program "$<TARGET_FILE:${program}>")
    endif()
    if(arg_EXPECT)
        set(script [[dev=$1 && expected=$2 && shift 2 && "$@" && "$dev" expect "$expected"]])
        list(PREPEND arg_COMMAND -c "${script}" sh "${kivoDev}" "${arg_EXPECT}" "${program}")
        set(program sh)
    endif()
    add_test(NAME "${arg_NAME}" COMMAND "${kivoDev}" run ${options} -- "${program}" ${arg_COMMAND})
    set_tests_properties("${arg_NAME}" PROPERTIES LABELS kivo-dev TIMEOUT 120)
endfunction()
