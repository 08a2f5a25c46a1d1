// Addresses to NATS subjects and back: exact both ways, and refusals that name what
// cannot map.
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <connector/nats/Subjects.hpp>

#include "support/ExpectThrow.hpp"

namespace {

using connector::Address;
using connector::nats::addressFor;
using connector::nats::checkSubjectPrefix;
using connector::nats::subjectFor;

TEST(SubjectsTest, AnAddressMapsToItsSubjectUnderThePrefixAndBackToTheSameAddress) {
  EXPECT_EQ(subjectFor(Address("shop/ReserveItem")), "connector.shop.ReserveItem");
  EXPECT_EQ(subjectFor(Address("a/b/c"), "eu.shop"), "eu.shop.a.b.c");
  EXPECT_EQ(subjectFor(Address("single")), "connector.single");
  for (const char* text : {"shop/ReserveItem", "a/b/c", "single", "x-1/y_2/Zäh", "a/b:c/#"}) {
    const Address address(text);
    EXPECT_EQ(addressFor(subjectFor(address)), address) << text;
    EXPECT_EQ(addressFor(subjectFor(address, "p.q"), "p.q"), address) << text;
  }
  EXPECT_EQ(addressFor("connector.shop.CancelOrder").str(), "shop/CancelOrder");
}

TEST(SubjectsTest, AnAddressWithAnEmptySegmentIsRefusedNamingIt) {
  for (const char* text : {"", "/a", "a/", "a//b", "/"}) {
    EXPECT_THROW_TEXT(subjectFor(Address(text)), std::invalid_argument,
                      "Address '" + std::string(text) +
                          "' cannot map to a NATS subject: it has an empty segment");
  }
}

TEST(SubjectsTest, ASegmentHoldingADotAWildcardOrWhitespaceIsRefusedNamingIt) {
  EXPECT_THROW_TEXT(subjectFor(Address("shop/a.b")), std::invalid_argument,
                    "Address 'shop/a.b' cannot map to a NATS subject: segment 'a.b' holds '.'");
  EXPECT_THROW_TEXT(subjectFor(Address("shop/*")), std::invalid_argument,
                    "Address 'shop/*' cannot map to a NATS subject: segment '*' holds '*'");
  EXPECT_THROW_TEXT(subjectFor(Address("a>/b")), std::invalid_argument,
                    "Address 'a>/b' cannot map to a NATS subject: segment 'a>' holds '>'");
  for (const char* text : {"a b/c", "a\tb", "a/b\n", "a/\rb", "a/b\v", "a/\fb"}) {
    SCOPED_TRACE(text);
    bool refused = false;
    try {
      subjectFor(Address(text));
    } catch (const std::invalid_argument& error) {
      refused = true;
      const std::string what = error.what();
      EXPECT_EQ(what.rfind("Address '" + std::string(text) + "' cannot map to a NATS subject: ", 0),
                0u);
      EXPECT_NE(what.find("' holds whitespace"), std::string::npos) << what;
    }
    EXPECT_TRUE(refused);
  }
  EXPECT_THROW_TEXT(subjectFor(Address("a b/c")), std::invalid_argument,
                    "Address 'a b/c' cannot map to a NATS subject: segment 'a b' holds whitespace");
  EXPECT_THROW_TEXT(
      subjectFor(Address(std::string("a/b\x01"))), std::invalid_argument,
      "Address 'a/b\x01' cannot map to a NATS subject: segment 'b\x01' holds a control character");
}

TEST(SubjectsTest, ASubjectOutsideThePrefixIsRefused) {
  for (const char* subject : {"other.x", "connector", "connector.", "connectorx.a", "connecto"}) {
    EXPECT_THROW_TEXT(addressFor(subject), std::invalid_argument,
                      "Subject '" + std::string(subject) + "' is not under the prefix 'connector'");
  }
}

TEST(SubjectsTest, ASubjectWhoseTokensCannotBeAnAddressIsRefused) {
  EXPECT_THROW_TEXT(addressFor("connector.a..b"), std::invalid_argument,
                    "Subject 'connector.a..b' maps to no address: it has an empty token");
  EXPECT_THROW_TEXT(addressFor("connector.a."), std::invalid_argument,
                    "Subject 'connector.a.' maps to no address: it has an empty token");
  EXPECT_THROW_TEXT(addressFor("connector.a/b"), std::invalid_argument,
                    "Subject 'connector.a/b' maps to no address: token 'a/b' holds '/'");
  EXPECT_THROW_TEXT(addressFor("connector.*"), std::invalid_argument,
                    "Subject 'connector.*' maps to no address: token '*' holds '*'");
  EXPECT_THROW_TEXT(addressFor("connector.a b"), std::invalid_argument,
                    "Subject 'connector.a b' maps to no address: token 'a b' holds whitespace");
}

TEST(SubjectsTest, APrefixMustBeValidTokensItself) {
  EXPECT_NO_THROW(checkSubjectPrefix("connector"));
  EXPECT_NO_THROW(checkSubjectPrefix("eu.shop"));
  EXPECT_THROW_TEXT(checkSubjectPrefix(""), std::invalid_argument,
                    "NATS subject prefix '' is not valid: it has an empty token");
  EXPECT_THROW_TEXT(checkSubjectPrefix("a..b"), std::invalid_argument,
                    "NATS subject prefix 'a..b' is not valid: it has an empty token");
  EXPECT_THROW_TEXT(checkSubjectPrefix("a.>"), std::invalid_argument,
                    "NATS subject prefix 'a.>' is not valid: token '>' holds '>'");
  EXPECT_THROW_TEXT(subjectFor(Address("a"), "x/y"), std::invalid_argument,
                    "NATS subject prefix 'x/y' is not valid: token 'x/y' holds '/'");
}

}  // namespace
