// The refusal of a link handed a message that is not an OpaqueMessage.
#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>

#include <connector/json.hpp>
#include <connector/transport/NotOpaque.hpp>

#include "support/ExpectThrow.hpp"

namespace {

struct Typed : connector::Message {};

TEST(NotOpaqueTest, NamesTheLinkAndTheMessagesType) {
  const Typed typed;
  EXPECT_THROW_TEXT(std::rethrow_exception(connector::transport::notOpaque(&typed, "SomeLink")),
                    std::invalid_argument,
                    "SomeLink delivers only an OpaqueMessage, not (anonymous namespace)::Typed");
}

TEST(NotOpaqueTest, SaysSoForANullMessage) {
  EXPECT_THROW_TEXT(std::rethrow_exception(connector::transport::notOpaque(nullptr, "SomeLink")),
                    std::invalid_argument,
                    "SomeLink delivers only an OpaqueMessage, not a null message");
}

}  // namespace
