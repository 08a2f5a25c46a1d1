// The {"error":"<text>"} body every transport answers a failure with, and its reading.
#include <string>

#include <gtest/gtest.h>

#include <connector/transport/ErrorBody.hpp>

namespace {

using connector::transport::errorBody;
using connector::transport::errorText;

TEST(ErrorBodyTest, TheTextIsJsonEscapedAndReadBack) {
  EXPECT_EQ(errorBody("order not found: a\"b\\c"), R"({"error":"order not found: a\"b\\c"})");
  EXPECT_EQ(errorText(errorBody("line\nbreak\ttab")), "line\nbreak\ttab");
  EXPECT_EQ(errorText(errorBody("caf\xC3\xA9")), "caf\xC3\xA9");
}

TEST(ErrorBodyTest, BytesThatAreNotUtf8BecomeTheReplacementCharacter) {
  const std::string body = errorBody("unexpected byte '\xE5' in value");
  EXPECT_EQ(errorText(body), "unexpected byte '\xEF\xBF\xBD' in value") << body;
  EXPECT_EQ(errorText(errorBody("\xFF\xFE")), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(ErrorBodyTest, ABodyThatIsNotAnErrorObjectReadsAsEmpty) {
  EXPECT_EQ(errorText("not json"), "");
  EXPECT_EQ(errorText(R"({"message":"x"})"), "");
  EXPECT_EQ(errorText(R"({"error":42})"), "");
  EXPECT_EQ(errorText("[1]"), "");
}

}  // namespace
