# Compiler settings shared by every target of the project.

# Warnings for the project's own code; dependencies come in as SYSTEM includes.
function(connector_target_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
endfunction()

if(CONNECTOR_SANITIZE)
  add_compile_options(-fsanitize=${CONNECTOR_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${CONNECTOR_SANITIZE})
  if(CONNECTOR_SANITIZE MATCHES "address|undefined")
    add_compile_options(-fno-sanitize-recover=all)
  endif()
  # Sanitized builds exist to run the tests: -O1 keeps the reports' stacks whole and
  # line tables (-g1) are all a report needs; together they halve the compile time of
  # the template-heavy sources against -O2 -g.
  set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1 -DNDEBUG")
  # At -O1 with sanitizers, g++ 12 warns inside libstdc++'s own <regex> about members it
  # cannot see initialised; the plain build keeps the warning for the project's code.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()
