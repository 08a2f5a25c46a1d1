# Fails unless README.md quotes the consumer program (from its first line that is not a
# comment) verbatim, so that the README's example is the one ctest builds and runs.
#   cmake -DREADME=<README.md> -DPROGRAM=<main.cpp> -P ReadmeExample.cmake
file(READ ${README} readme)
file(STRINGS ${PROGRAM} lines)
file(READ ${PROGRAM} program)
set(skipped 0)
foreach(line IN LISTS lines)
  if(NOT line MATCHES "^//")
    break()
  endif()
  string(LENGTH "${line}\n" length)
  math(EXPR skipped "${skipped} + ${length}")
endforeach()
string(SUBSTRING "${program}" ${skipped} -1 quoted)
string(FIND "${readme}" "```cpp\n${quoted}```" at)
if(at EQUAL -1)
  message(FATAL_ERROR "README.md does not quote ${PROGRAM} verbatim (from its first #include)")
endif()
