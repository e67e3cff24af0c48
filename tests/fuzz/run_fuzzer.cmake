# Runs FUZZER from a fresh copy of SEEDS in WORK, where it leaves what it finds.
file(GLOB seeds ${SEEDS}/*)
if(NOT seeds)
  message(FATAL_ERROR "No seeds in ${SEEDS}")
endif()
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
file(COPY ${seeds} DESTINATION ${WORK})
execute_process(COMMAND ${FUZZER} -runs=20000 -seed=1 -max_len=4096 -timeout=20
                        -artifact_prefix=${WORK}. ${WORK}
                RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "The fuzzer did not run, or found a fault: then its input is beside ${WORK}")
endif()
