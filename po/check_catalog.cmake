# Fails unless the template in the tree is the one that the table of messages yields, or (with PO) unless a translation
# is sound and has every message of the template.

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGV}: ${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

if(PO)
  run(${MSGFMT} --check --statistics -o /dev/null ${PO})
  if(output MATCHES "fuzzy|untranslated")
    message(FATAL_ERROR "${PO} is not complete: ${output}")
  endif()
  run(${MSGCMP} ${PO} ${POT})
else()
  execute_process(COMMAND ${MAKE_POT} OUTPUT_VARIABLE wanted COMMAND_ERROR_IS_FATAL ANY)
  file(READ ${POT} found)
  if(NOT found STREQUAL wanted)
    message(FATAL_ERROR "${POT} is not what the table of messages yields; build the target `pot`")
  endif()
endif()
