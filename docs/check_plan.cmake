# Fails unless FILE is what MAKE writes of this KIND.
execute_process(COMMAND ${MAKE} ${KIND} OUTPUT_VARIABLE wanted COMMAND_ERROR_IS_FATAL ANY)
file(READ ${FILE} found)
if(NOT found STREQUAL wanted)
  message(FATAL_ERROR "${FILE} is not what the shutdown table yields; build the target `plan`")
endif()
