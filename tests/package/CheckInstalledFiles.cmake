# Fails unless every file named in FILES (a ';'-list) exists under DIR: what the package
# installs beside its libraries and headers.
#   cmake -DDIR=<folder> -DFILES="a;b" -P CheckInstalledFiles.cmake
foreach(file IN LISTS FILES)
  if(NOT EXISTS ${DIR}/${file})
    message(FATAL_ERROR "${DIR}/${file} is not installed")
  endif()
endforeach()
