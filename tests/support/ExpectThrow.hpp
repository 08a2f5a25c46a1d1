// EXPECT_THROW_TEXT: asserts in one line that a statement throws exactly the given
// exception type with exactly the given what() text.
//
//   EXPECT_THROW_TEXT(future.get(), std::runtime_error, "Future has been cancelled.");
#pragma once

#include <gtest/gtest.h>

#include <string>

#define EXPECT_THROW_TEXT(statement, ExceptionType, expectedText)                \
  do {                                                                           \
    bool connectorCaught = false;                                                \
    try {                                                                        \
      statement;                                                                 \
    } catch (const ExceptionType& connectorError) {                              \
      connectorCaught = true;                                                    \
      EXPECT_EQ(typeid(connectorError), typeid(ExceptionType))                   \
          << "threw a subclass of " #ExceptionType;                              \
      EXPECT_EQ(std::string(connectorError.what()), std::string(expectedText));  \
    } catch (...) {                                                              \
      ADD_FAILURE() << #statement " threw something other than " #ExceptionType; \
      connectorCaught = true;                                                    \
    }                                                                            \
    if (!connectorCaught) {                                                      \
      ADD_FAILURE() << #statement " did not throw";                              \
    }                                                                            \
  } while (false)
