// StatusError: a runtime failure that carries the status and answer text an edge uses.
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <connector/transport/StatusError.hpp>

#include "support/ExpectThrow.hpp"

namespace {

using connector::transport::StatusError;

TEST(StatusErrorTest, KeepsItsStatusItsFullTextAndItsAnswerText) {
  const StatusError error(503, "NATS request to 'connector.a' failed: no service is listening",
                          "No service is listening at 'a'");
  EXPECT_EQ(error.status(), 503);
  EXPECT_STREQ(error.what(), "NATS request to 'connector.a' failed: no service is listening");
  EXPECT_STREQ(error.answerText(), "No service is listening at 'a'");
}

TEST(StatusErrorTest, IsCaughtAsARuntimeErrorWithItsFullText) {
  EXPECT_THROW_TEXT(throw StatusError(500, "full text", "answer"), StatusError, "full text");
  try {
    throw StatusError(500, "full text", "answer");
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "full text");
  }
}

TEST(StatusErrorTest, CopiesShareBothTexts) {
  const StatusError original(404, "what", "answer");
  StatusError copy(500, "other", "other answer");
  copy = original;
  const StatusError constructed(copy);
  EXPECT_EQ(constructed.status(), 404);
  EXPECT_STREQ(constructed.what(), "what");
  EXPECT_STREQ(constructed.answerText(), "answer");
}

}  // namespace
