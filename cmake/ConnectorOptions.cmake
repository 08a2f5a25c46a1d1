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
endif()
