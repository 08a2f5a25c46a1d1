// The check that a request body is a JSON object, made by every transport.
#include <string>

#include <gtest/gtest.h>

#include <connector/transport/RequestBody.hpp>

namespace {

using connector::transport::isJsonObjectText;
using connector::transport::kNotAnObjectText;

TEST(RequestBodyTest, AnObjectIsOneAfterAnyJsonWhitespace) {
  EXPECT_TRUE(isJsonObjectText("{}"));
  EXPECT_TRUE(isJsonObjectText(R"({"type":"shop/ReserveItem"})"));
  EXPECT_TRUE(isJsonObjectText(" \t\r\n{"));
  // Only the first byte counts: what follows is the deserializer's to judge.
  EXPECT_TRUE(isJsonObjectText("{not json"));
}

TEST(RequestBodyTest, AnyOtherRootIsNotAnObject) {
  for (const char* body : {"[]", "[{}]", "\"{\"", "1", "-1", "true", "false", "null", "x{}"}) {
    EXPECT_FALSE(isJsonObjectText(body)) << body;
  }
}

TEST(RequestBodyTest, AnEmptyOrBlankBodyIsNotAnObject) {
  EXPECT_FALSE(isJsonObjectText(""));
  EXPECT_FALSE(isJsonObjectText(" \t\r\n"));
}

TEST(RequestBodyTest, WhitespaceThatJsonDoesNotKnowCountsAsABadFirstByte) {
  EXPECT_FALSE(isJsonObjectText("\v{}"));
  EXPECT_FALSE(isJsonObjectText("\f{}"));
  EXPECT_FALSE(isJsonObjectText(std::string("\0{}", 3)));
  EXPECT_FALSE(isJsonObjectText("\xEF\xBB\xBF{}"));  // a byte order mark
}

TEST(RequestBodyTest, TheTextOfTheAnswer) {
  EXPECT_STREQ(kNotAnObjectText, "the request body must be a JSON object");
}

}  // namespace
