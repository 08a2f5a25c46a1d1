# Finds the nats.c client library (Debian's libnats-dev) and defines the imported target
# cnats::nats, with cnats_VERSION from its version header.
#
#   find_package(cnats 3.4 REQUIRED)
#   target_link_libraries(app PRIVATE cnats::nats)
#
# Debian's libnats-dev ships a CMake package config that also names a static library the
# package does not contain, so loading that config stops the configure step with an
# error. This module finds the header and the shared library instead. It is installed
# beside connector_json's package config, which uses it for the `nats` component.
find_path(cnats_INCLUDE_DIR NAMES nats/nats.h)
find_library(cnats_LIBRARY NAMES nats)

if(cnats_INCLUDE_DIR AND EXISTS "${cnats_INCLUDE_DIR}/nats/version.h")
  file(STRINGS "${cnats_INCLUDE_DIR}/nats/version.h" cnats_version_line
       REGEX "^#define NATS_VERSION_STRING +\"[0-9.]+")
  string(REGEX REPLACE ".*\"([0-9.]+).*" "\\1" cnats_VERSION "${cnats_version_line}")
  unset(cnats_version_line)
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(cnats
  REQUIRED_VARS cnats_LIBRARY cnats_INCLUDE_DIR
  VERSION_VAR cnats_VERSION)

if(cnats_FOUND AND NOT TARGET cnats::nats)
  add_library(cnats::nats SHARED IMPORTED)
  set_target_properties(cnats::nats PROPERTIES
    IMPORTED_LOCATION "${cnats_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${cnats_INCLUDE_DIR}")
endif()
mark_as_advanced(cnats_INCLUDE_DIR cnats_LIBRARY)
