# Fails unless the template in the tree is the one that the table of messages yields, or (with PO) unless a translation
# is sound and has every message of the template.

function(run complaint)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${complaint}:\n${output}")
  endif()
endfunction()

if(PO)
  run("${PO} is not sound" ${MSGFMT} --check -o /dev/null ${PO})
  # Fuzzy and empty translations count as missing.
  run("${PO} is not complete; build the target `po-merge`, then translate what it leaves empty" ${MSGCMP} ${PO} ${POT})
else()
  execute_process(COMMAND ${MAKE_POT} OUTPUT_VARIABLE wanted COMMAND_ERROR_IS_FATAL ANY)
  file(READ ${POT} found)
  if(NOT found STREQUAL wanted)
    message(FATAL_ERROR "${POT} is not what the table of messages yields; build the target `po-merge`, which writes it and "
            "brings the catalogs in line")
  endif()
endif()
