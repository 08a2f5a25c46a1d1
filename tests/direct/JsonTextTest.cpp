// The direct codec's text pieces against Poco's own writer: numbers as Poco's dynamic
// values turn them into text, strings as Poco's JSON string writer escapes them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSONString.h>

#include <connector/types/detail/JsonText.hpp>

#include "direct/DirectTypesInScope.hpp"

namespace connector::json::detail {
namespace {

constexpr int kRandom = testing::sanitizedBuild() ? 20000 : 200000;

template <typename F>
std::string ours(F value) {
  std::string out;
  appendNumber(out, value);
  return out;
}

template <typename F>
std::string poco(F value) {
  return Poco::Dynamic::Var(value).convert<std::string>();
}

std::string quotedByPoco(const std::string& text) {
  std::ostringstream out;
  Poco::toJSON(text, out, Poco::JSON_WRAP_STRINGS);
  return out.str();
}

std::string escapedByUs(const std::string& text) {
  std::string out;
  appendQuoted(out, text);
  return out;
}

TEST(JsonTextTest, NumbersAtTheEdgesAreWrittenAsPocoWritesThem) {
  EXPECT_EQ(ours(0.0), "0");
  EXPECT_EQ(ours(-0.0), "0");
  EXPECT_EQ(ours(1e21), "1e+21");
  EXPECT_EQ(ours(1e-7), "0.0000001");
  EXPECT_EQ(ours(0.1), "0.1");
  EXPECT_EQ(ours(1e15), "1e+15");
  EXPECT_EQ(ours(1e14), "100000000000000");
  EXPECT_EQ(ours(1.5e-15), "0.0000000000000015");
  EXPECT_EQ(ours(5e-324), "5e-324");
  EXPECT_EQ(ours(1e308), "1e+308");
  EXPECT_EQ(ours(9007199254740993.0), "9.007199254740992e+15");
  EXPECT_EQ(ours(-65.613616999999977), "-65.61361699999998");
  EXPECT_EQ(ours(1e6F), "1e+6");
  EXPECT_EQ(ours(123456.0F), "123456");
  EXPECT_EQ(ours(0.1F), "0.1");
  EXPECT_EQ(ours(1e-7F), "1e-7");
  const double doubles[] = {0.0,
                            -0.0,
                            0.1,
                            1e21,
                            1e-7,
                            1e15,
                            1e14,
                            1e16,
                            1e-15,
                            1e-16,
                            5e-324,
                            1e308,
                            std::numeric_limits<double>::max(),
                            std::numeric_limits<double>::min(),
                            9007199254740993.0,
                            123456789012345.6,
                            1234567890123456.7,
                            0.000001,
                            100,
                            1.0 / 3,
                            -2.5,
                            2.2250738585072009e-308};
  for (const double value : doubles) EXPECT_EQ(ours(value), poco(value)) << value;
  const float floats[] = {0.0F,
                          -0.0F,
                          0.1F,
                          1e6F,
                          1e5F,
                          123456.0F,
                          1234567.0F,
                          1e-6F,
                          1e-7F,
                          std::numeric_limits<float>::max(),
                          std::numeric_limits<float>::min(),
                          std::numeric_limits<float>::denorm_min(),
                          3.14159265F,
                          16777217.0F};
  for (const float value : floats) EXPECT_EQ(ours(value), poco(value)) << value;
}

TEST(JsonTextTest, EveryKindOfDoubleAndFloatIsWrittenAsPocoWritesIt) {
  std::mt19937_64 random(21);
  int compared = 0;
  for (int i = 0; i < kRandom; ++i) {
    const std::uint64_t bits = random();
    double d = 0;
    std::memcpy(&d, &bits, sizeof d);
    if (std::isfinite(d)) {
      ASSERT_EQ(ours(d), poco(d)) << std::hexfloat << d;
      ++compared;
    }
    const auto small = static_cast<std::uint32_t>(bits);
    float f = 0;
    std::memcpy(&f, &small, sizeof f);
    if (std::isfinite(f)) {
      ASSERT_EQ(ours(f), poco(f)) << std::hexfloat << f;
    }
    // Values with few digits, where the positional and exponent forms meet.
    const double round =
        std::ldexp(static_cast<double>(bits % 1000000), static_cast<int>(bits >> 54) % 80 - 40);
    ASSERT_EQ(ours(round), poco(round)) << std::hexfloat << round;
    const double decimal =
        static_cast<double>(bits % 100000) * std::pow(10.0, static_cast<int>(bits >> 58) - 32);
    ASSERT_EQ(ours(decimal), poco(decimal)) << decimal;
  }
  EXPECT_GT(compared, kRandom / 2);
}

TEST(JsonTextTest, EveryByteOfAStringIsEscapedAsPocoEscapesIt) {
  for (int c = 0; c < 256; ++c) {
    const std::string text(1, static_cast<char>(c));
    EXPECT_EQ(escapedByUs(text), quotedByPoco(text)) << c;
    EXPECT_EQ(escapedByUs("ab" + text + "cd"), quotedByPoco("ab" + text + "cd")) << c;
  }
  EXPECT_EQ(escapedByUs(""), "\"\"");
  EXPECT_EQ(escapedByUs("a\"b\\c/d\n\x01\x7f\xc3\xa9"), "\"a\\\"b\\\\c/d\\n\\u0001\x7f\xc3\xa9\"");
  std::mt19937_64 random(22);
  for (int i = 0; i < kRandom / 20; ++i) {
    std::string text(random() % 40, '\0');
    for (auto& c : text) c = static_cast<char>(random() % 256);
    ASSERT_EQ(escapedByUs(text), quotedByPoco(text));
  }
}

}  // namespace
}  // namespace connector::json::detail
