// Integer members at the edges of their types, read from text as a peer sends it: each
// width's minimum and maximum are accepted, one past either is refused, fractions and
// exponents are refused, and a uint64_t above the int64_t range comes back exactly. Also
// the parser's own refusal of the literals Poco would otherwise wrap around.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <sstream>
#include <string>

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>
#include <connector/serializer/detail/CheckedParseHandler.hpp>

#include "serializer/ChunkPublisher.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::typestest {
namespace {

using MessagePtr = std::unique_ptr<connector::Message>;

template <typename I>
struct Single : connector::Message {
  I value{};
};

// Reads {"type":"<name>","value":<literal>} through the streamed deserialize by "type".
template <typename I>
class Edges {
 public:
  explicit Edges(const std::string& name) : name(name) {
    json::MessageType<Single<I>> type(name);
    type.field("value", &Single<I>::value);
    type.registerWith(*serializer);
  }

  I read(const std::string& literal) {
    MessagePtr message = serializer->deserialize(bytes(literal)).get();
    return dynamic_cast<const Single<I>&>(*message).value;
  }

  // The text of the failed future for this literal.
  std::string refusal(const std::string& literal) {
    try {
      serializer->deserialize(bytes(literal)).get();
    } catch (const std::invalid_argument& e) {
      return e.what();
    }
    return "(accepted)";
  }

  std::string outOfRange(const std::string& literal) const {
    return "Error while parsing: Parsing error for type '" + name +
           "': member \"/value\": " + literal + " is out of range";
  }

  std::string written(I value) {
    auto message = std::make_unique<Single<I>>();
    message->value = value;
    std::ostringstream out;
    serializer->serialize(MessagePtr(std::move(message)), out);
    return out.str();
  }

 private:
  std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>> bytes(
      const std::string& literal) const {
    return std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
        common::DataBuffer(R"({"type":")" + name + R"(","value":)" + literal + "}"));
  }

  std::string name;
  std::shared_ptr<json::JsonSerializerImpl> serializer =
      std::make_shared<json::JsonSerializerImpl>();
};

// Minimum and maximum read exactly; one below and one above refused as out of range.
template <typename I>
void expectEdges(const std::string& name, const std::string& below, const std::string& above) {
  Edges<I> edges(name);
  const I min = std::numeric_limits<I>::min();
  const I max = std::numeric_limits<I>::max();
  EXPECT_EQ(edges.read(std::to_string(min)), min) << name;
  EXPECT_EQ(edges.read(std::to_string(max)), max) << name;
  EXPECT_EQ(edges.refusal(below), edges.outOfRange(below)) << name;
  EXPECT_EQ(edges.refusal(above), edges.outOfRange(above)) << name;
}

TEST(IntegerEdges, EachWidthUpToThirtyTwoBitsTakesItsRangeAndRefusesOnePastEitherEnd) {
  expectEdges<std::int8_t>("test/Int8", "-129", "128");
  expectEdges<std::uint8_t>("test/UInt8", "-1", "256");
  expectEdges<std::int16_t>("test/Int16", "-32769", "32768");
  expectEdges<std::uint16_t>("test/UInt16", "-1", "65536");
  expectEdges<std::int32_t>("test/Int32", "-2147483649", "2147483648");
  expectEdges<std::uint32_t>("test/UInt32", "-1", "4294967296");
}

TEST(IntegerEdges, SixtyFourBitWidthsTakeTheirRangeAndRefuseOnePastWithinTheParsersRange) {
  Edges<std::int64_t> signed64("test/Int64");
  EXPECT_EQ(signed64.read("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(signed64.read("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(signed64.refusal("9223372036854775808"), signed64.outOfRange("9223372036854775808"));
  Edges<std::uint64_t> unsigned64("test/UInt64");
  EXPECT_EQ(unsigned64.read("0"), 0U);
  EXPECT_EQ(unsigned64.read("18446744073709551615"), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(unsigned64.refusal("-1"), unsigned64.outOfRange("-1"));
}

TEST(IntegerEdges, IntegersBeyondThe64BitRangeAreRefusedByTheParserItself) {
  Edges<std::int64_t> signed64("test/Int64");
  Edges<std::uint64_t> unsigned64("test/UInt64");

  EXPECT_EQ(unsigned64.refusal("18446744073709551616"),
            "Parsing error: Not a valid unsigned integer: 18446744073709551616");
  EXPECT_EQ(unsigned64.refusal("18446744073709551619"),
            "Parsing error: Not a valid unsigned integer: 18446744073709551619");
  EXPECT_EQ(unsigned64.refusal("18446744073709551620"),
            "Parsing error: Not a valid unsigned integer: 18446744073709551620");
  EXPECT_EQ(signed64.refusal("-9223372036854775810"),
            "Parsing error: Not a valid unsigned integer: -9223372036854775810");
}

// The one literal next to the 64-bit range that the parser still reads as another number:
// its number parser gives the same Int64 for it as for the minimum itself.
TEST(IntegerEdges, OnePastTheInt64MinimumIsStillReadAsTheMinimumByTheParser) {
  Edges<std::int64_t> signed64("test/Int64");

  EXPECT_EQ(signed64.read("-9223372036854775809"), std::numeric_limits<std::int64_t>::min());
}

TEST(IntegerEdges, AUInt64AboveTheInt64RangeRoundTripsExactly) {
  Edges<std::uint64_t> unsigned64("test/UInt64");
  const std::uint64_t big = 9223372036854775808ULL + 12345;

  const std::string text = unsigned64.written(big);

  EXPECT_EQ(text, R"({"value":9223372036854788153,"type":"test/UInt64"})");
  EXPECT_EQ(unsigned64.read("9223372036854788153"), big);
}

TEST(IntegerEdges, FractionsAndExponentsAreRefusedForEveryWidth) {
  Edges<std::int8_t> narrow("test/Int8");
  Edges<std::uint64_t> wide("test/UInt64");
  const std::string expected = "\": expected an integer, got a number";

  for (const char* literal : {"1.0", "1e2", "0.5", "-1E0"}) {
    EXPECT_EQ(narrow.refusal(literal),
              "Error while parsing: Parsing error for type 'test/Int8': "
              "member \"/value" +
                  expected)
        << literal;
    EXPECT_EQ(wide.refusal(literal),
              "Error while parsing: Parsing error for type 'test/UInt64': "
              "member \"/value" +
                  expected)
        << literal;
  }
}

TEST(IntegerEdges, AMisreadLiteralCutIntoChunksIsStillRefused) {
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  const std::string document = R"({"type":"connector/Message","n":18446744073709551617})";

  for (std::size_t chunk = 1; chunk <= 7; ++chunk) {
    EXPECT_THROW_TEXT(serializer
                          ->deserialize(std::make_shared<connector::testing::ChunkPublisher>(
                              connector::testing::ChunkPublisher::split(document, chunk)))
                          .get(),
                      std::invalid_argument,
                      "Parsing error: Not a valid unsigned integer: 18446744073709551617");
  }
}

Poco::Dynamic::Var parsedChecked(const std::string& text) {
  Poco::JSON::Parser parser(new json::detail::CheckedParseHandler);
  return parser.parse(text);
}

TEST(IntegerEdges, TheCheckedHandlerRefusesTheFourLiteralsPocoWrapsAround) {
  for (const std::string literal : {"18446744073709551616", "18446744073709551617",
                                    "18446744073709551618", "18446744073709551619"}) {
    try {
      parsedChecked(R"({"a":[1,)" + literal + "]}");
      ADD_FAILURE() << "accepted: " << literal;
    } catch (const Poco::SyntaxException& e) {
      EXPECT_EQ(e.message(), "Not a valid unsigned integer: " + literal);
    }
  }
}

TEST(IntegerEdges, TheCheckedHandlerPassesEveryOtherNumberOn) {
  const auto values =
      parsedChecked(R"([18446744073709551615,9223372036854775808,9223372036854775807,)"
                    R"(-9223372036854775808,0,"18446744073709551616",1.8446744073709551616e19])")
          .extract<Poco::JSON::Array::Ptr>();

  EXPECT_EQ(values->get(0).extract<Poco::UInt64>(), 18446744073709551615ULL);
  EXPECT_EQ(values->get(1).extract<Poco::UInt64>(), 9223372036854775808ULL);
  EXPECT_EQ(values->get(2).extract<Poco::Int64>(), 9223372036854775807LL);
  EXPECT_EQ(values->get(3).extract<Poco::Int64>(), std::numeric_limits<Poco::Int64>::min());
  EXPECT_EQ(values->get(4).extract<Poco::Int64>(), 0);
  EXPECT_EQ(values->get(5).extract<std::string>(), "18446744073709551616");
  EXPECT_EQ(values->get(6).extract<double>(), 18446744073709551616.0);
}

}  // namespace
}  // namespace connector::typestest
