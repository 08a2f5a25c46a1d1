# Fails unless the program NAME, found by name on a PATH of only BIN, /usr/bin and /bin
# (and no LD_LIBRARY_PATH), exits 0 with ARGS and prints FIRST_LINE (a regular
# expression) as its first line: an installed program runs from its prefix alone.
#   cmake -DBIN=<prefix>/bin -DNAME=<program> -DARGS=--help -DFIRST_LINE=<regex>
#     -P RunInstalledProgram.cmake
set(ENV{PATH} "${BIN}:/usr/bin:/bin")
unset(ENV{LD_LIBRARY_PATH})
execute_process(COMMAND ${NAME} ${ARGS}
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
if(NOT result STREQUAL "0")
  message(FATAL_ERROR "${NAME} ${ARGS} exited with ${result}:\n${output}${errors}")
endif()
string(REGEX MATCH "^[^\n]*" first "${output}")
if(NOT first MATCHES "${FIRST_LINE}")
  message(FATAL_ERROR "${NAME} ${ARGS} printed first \"${first}\", not \"${FIRST_LINE}\"")
endif()
message(STATUS "${NAME} ${ARGS}: ${first}")
