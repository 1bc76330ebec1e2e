# Compiles one probe source with a layer's include directories and checks the
# outcome. Run with cmake -P and:
#   COMPILER  the C++ compiler          FLAGS, INCLUDES  lists joined by '|'
#   PROBE     the source                MODE  compiles | preprocesses | hidden
#   HEADER, SOURCE_DIR  for hidden: the header the probe includes, which must
#                       exist under SOURCE_DIR and yet not be found.
# `hidden` passes only when the compiler ran and stopped at that header for
# want of the file, so that a wrong compiler or flag cannot pass for a hidden
# header.
foreach(var COMPILER PROBE MODE)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "check-include.cmake: ${var} not given")
  endif()
endforeach()
string(REPLACE "|" ";" flags "${FLAGS}")
string(REPLACE "|" ";" includes "${INCLUDES}")
list(TRANSFORM includes PREPEND "-I")

if(MODE STREQUAL "preprocesses")
  set(action -E -o /dev/null)
elseif(MODE STREQUAL "compiles" OR MODE STREQUAL "hidden")
  set(action -fsyntax-only)
else()
  message(FATAL_ERROR "check-include.cmake: unknown mode '${MODE}'")
endif()
if(MODE STREQUAL "hidden" AND NOT EXISTS "${SOURCE_DIR}/${HEADER}")
  message(FATAL_ERROR "${HEADER} is not in ${SOURCE_DIR}: the probe would prove nothing")
endif()

set(command ${COMPILER} ${flags} ${includes} ${action} ${PROBE})
execute_process(COMMAND ${command} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
list(JOIN command " " shown)
if(NOT result MATCHES "^[0-9]+$")
  message(FATAL_ERROR "cannot run the compiler (${result}): ${shown}")
endif()

if(MODE STREQUAL "hidden")
  # GCC's and Clang's words for it.
  string(FIND "${out}" "${HEADER}: No such file or directory" gcc_missing)
  string(FIND "${out}" "'${HEADER}' file not found" clang_missing)
  if(result EQUAL 0 OR (gcc_missing EQUAL -1 AND clang_missing EQUAL -1))
    message(FATAL_ERROR "${HEADER} was not refused as a missing file (exit ${result}):\n"
                        "${shown}\n${out}")
  endif()
elseif(NOT result EQUAL 0)
  message(FATAL_ERROR "the probe does not compile with the layer's include directories:\n"
                      "${shown}\n${out}")
endif()
