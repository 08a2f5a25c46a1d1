// Numbers in bulk, read and written both ways: vectors of doubles, floats and 64-bit
// integers filled with random values in every textual form a peer may send (shortest,
// 17 significant digits, exponent forms, long decimals, integers of every magnitude and
// sign), and with the edges of every width. Both paths must read every bit alike and
// write the same digits.
#include <gtest/gtest.h>

#include <cfloat>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "direct/DirectTypesInScope.hpp"
#include "support/DirectDifferential.hpp"

namespace connector::testing {
namespace {

struct Numbers : Message {
  std::vector<double> doubles;
  std::vector<float> floats;
  std::vector<std::int64_t> signedIntegers;
  std::vector<std::uint64_t> unsignedIntegers;
};

constexpr int kDocuments = sanitizedBuild() ? 4 : 20;
constexpr int kPerDocument = 2000;

class DirectCodecNumbersTest : public ::testing::Test {
 protected:
  DirectCodecNumbersTest() {
    numbers.field("doubles", &Numbers::doubles)
        .field("floats", &Numbers::floats)
        .field("signedIntegers", &Numbers::signedIntegers)
        .field("unsignedIntegers", &Numbers::unsignedIntegers);
    both.declare(numbers);
  }

  // A finite double of random bits, or a "nice" one, in one of several textual forms;
  // with floatRange, within half of float's range (a float member refuses more).
  std::string anyNumber(bool floatRange = false) {
    double value = 0;
    switch (random() % 4) {
      case 0:
        do {
          const std::uint64_t bits = random();
          std::memcpy(&value, &bits, sizeof value);
        } while (!std::isfinite(value));
        break;
      case 1:
        value = std::uniform_real_distribution<double>(-1e3, 1e3)(random);
        break;
      case 2:
        value = std::ldexp(std::uniform_real_distribution<double>(0.5, 1)(random),
                           static_cast<int>(random() % 2000) - 1000);
        break;
      default:
        value = static_cast<double>(static_cast<std::int64_t>(random()) >> (random() % 64));
        break;
    }
    while (floatRange && std::fabs(value) > static_cast<double>(FLT_MAX) / 2) value /= 1e30;
    static const char* const kFormats[] = {"%.17g", "%.16e", "%.15g", "%.9g", "%.3f",
                                           "%g",    "%.6e",  "%.12E", "%.1f"};
    char text[400];  // "%.3f" of 1e308 has 313 characters
    std::snprintf(text, sizeof text, kFormats[random() % std::size(kFormats)], value);
    return text;
  }

  std::string anyInteger(bool negativeToo) {
    const std::uint64_t magnitude = random() >> (random() % 64);
    char text[32];
    if (negativeToo && random() % 2 == 0) {
      std::snprintf(text, sizeof text, "-%" PRIu64,
                    std::min<std::uint64_t>(magnitude, std::uint64_t{1} << 63));
    } else if (negativeToo) {
      std::snprintf(text, sizeof text, "%" PRIu64,
                    std::min<std::uint64_t>(magnitude, std::numeric_limits<std::int64_t>::max()));
    } else {
      std::snprintf(text, sizeof text, "%" PRIu64, magnitude);
    }
    return text;
  }

  std::string list(int count, bool numbers, bool negativeToo, bool floatRange = false) {
    std::string out = "[";
    for (int i = 0; i < count; ++i) {
      if (i > 0) out += ',';
      out += numbers ? anyNumber(floatRange) : anyInteger(negativeToo);
    }
    return out + "]";
  }

  json::MessageType<Numbers> numbers{"test/Numbers"};
  DirectDifferential both;
  std::mt19937_64 random{11};
};

TEST_F(DirectCodecNumbersTest, RandomNumbersReadAndWriteTheSameOnBothPaths) {
  const std::string name = "test/Numbers";
  int read = 0;
  for (int i = 0; i < kDocuments; ++i) {
    const std::string document = "{\"doubles\":" + list(kPerDocument, true, true) +
                                 ",\"floats\":" + list(kPerDocument / 4, true, true, true) +
                                 ",\"signedIntegers\":" + list(kPerDocument, false, true) +
                                 ",\"unsignedIntegers\":" + list(kPerDocument, false, false) + "}";
    EXPECT_EQ(both.compareRead(&name, oneShot(document)), "");
    const ReadOutcome outcome =
        DirectDifferential::read(*both.reference, &name, oneShot(document)());
    if (outcome.message) {
      ++read;
      EXPECT_EQ(both.compareWrite(outcome.message), "");
    }
  }
  EXPECT_GT(read, 0);
}

TEST_F(DirectCodecNumbersTest, EdgeValuesWriteTheSameOnBothPaths) {
  auto message = std::make_unique<Numbers>();
  message->doubles = {0.0,
                      -0.0,
                      0.1,
                      -0.1,
                      1e21,
                      1e-7,
                      1e15,
                      1e16,
                      1e-15,
                      1e-16,
                      5e-324,
                      2.2250738585072014e-308,
                      1e308,
                      std::numeric_limits<double>::max(),
                      9007199254740993.0,
                      123456789012345.0,
                      1234567890123456.0,
                      0.5,
                      100,
                      -65.613616999999977,
                      1.0 / 3};
  message->floats = {0.0F,
                     -0.0F,
                     0.1F,
                     1e6F,
                     1e5F,
                     123456.0F,
                     1234567.0F,
                     1e-6F,
                     1e-7F,
                     std::numeric_limits<float>::max(),
                     std::numeric_limits<float>::denorm_min(),
                     3.14159265F};
  message->signedIntegers = {0, -1, std::numeric_limits<std::int64_t>::min(),
                             std::numeric_limits<std::int64_t>::max()};
  message->unsignedIntegers = {0, std::numeric_limits<std::uint64_t>::max(),
                               std::uint64_t{1} << 63};
  std::unique_ptr<Message> held = std::move(message);
  EXPECT_EQ(both.compareWrite(held), "");
  // Random bits, every double and float there is in kind.
  auto randomBits = std::make_unique<Numbers>();
  for (int i = 0; i < 20000; ++i) {
    double d = 0;
    float f = 0;
    const std::uint64_t bits = random();
    std::memcpy(&d, &bits, sizeof d);
    const auto fbits = static_cast<std::uint32_t>(bits >> 17);
    std::memcpy(&f, &fbits, sizeof f);
    if (std::isfinite(d)) randomBits->doubles.push_back(d);
    if (std::isfinite(f)) randomBits->floats.push_back(f);
  }
  held = std::move(randomBits);
  EXPECT_EQ(both.compareWrite(held), "");
}

TEST_F(DirectCodecNumbersTest, ValuesJsonCannotHoldFailTheSameOnBothPaths) {
  for (const double bad :
       {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN()}) {
    auto message = std::make_unique<Numbers>();
    message->doubles = {1.5, bad};
    std::unique_ptr<Message> held = std::move(message);
    EXPECT_EQ(both.compareWrite(held), "");
    const WriteOutcome written =
        DirectDifferential::write(*both.direct, held, DirectDifferential::Write::SerializeToStream);
    EXPECT_EQ(written.failure.find("St13runtime_error: Error while serializing: test/Numbers, "
                                   "member \"/doubles/1\": "),
              0u)
        << written.failure;
    EXPECT_EQ(written.logs.size(), 1u);
  }
}

}  // namespace
}  // namespace connector::testing
