# Shared by the scripts that run the real tez program as a user does:
# run_tez(ARGS...) sets code, out and err; expect(CODE PATTERN) fails the
# test unless the exit code is CODE and stdout+stderr match PATTERN.

function(run_tez)
  execute_process(COMMAND ${TEZ} ${ARGN}
    RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
  set(code "${code}" PARENT_SCOPE)
  set(err "${err}" PARENT_SCOPE)
  set(out "${out}" PARENT_SCOPE)
endfunction()

function(expect code_wanted pattern)
  if(NOT code EQUAL code_wanted)
    message(FATAL_ERROR "exit ${code}, wanted ${code_wanted}\nstdout: ${out}\nstderr: ${err}")
  endif()
  if(NOT "${out}${err}" MATCHES "${pattern}")
    message(FATAL_ERROR "no match for '${pattern}'\nstdout: ${out}\nstderr: ${err}")
  endif()
endfunction()
