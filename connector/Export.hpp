// CONNECTOR_API marks the classes and functions that the shared libraries export.
//
// Both libraries build with hidden visibility by default; anything a user of the
// package calls, derives from or catches across the library boundary (including the
// type information that dynamic_cast and exception matching rely on) carries this
// macro. On ELF platforms the same attribute serves for building and for using.
#pragma once

#if defined(_WIN32)
#  if defined(CONNECTOR_BUILDING_LIBRARY)
#    define CONNECTOR_API __declspec(dllexport)
#  else
#    define CONNECTOR_API __declspec(dllimport)
#  endif
#else
#  define CONNECTOR_API __attribute__((visibility("default")))
#endif
