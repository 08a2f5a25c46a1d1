// The member options of json::Field: each rule and its exact text through both reading
// paths (deserialize(object) and the streamed one), inside vectors, maps and optionals;
// what is written; the declaration errors; the schema each option gives.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"
#include "types/ReadBothWays.hpp"

namespace connector::typestest {
namespace {

struct Limited : connector::Message {
  std::uint64_t id = 0;
  std::int32_t quantity = 7;
  std::string sku = "AB-1";
  std::vector<std::int64_t> ids;
  std::map<std::string, std::int32_t> counts;
  std::optional<std::int16_t> small;
  double ratio = 0.5;
  std::vector<std::string> names;
  std::optional<std::string> note = std::string("none");
};

json::MessageType<Limited> declareLimited() {
  json::MessageType<Limited> type("test/Limited");
  type.field("id", &Limited::id, json::Field().quoted().alias("limitedId"))
      .field("quantity", &Limited::quantity, json::Field().minimum(1).maximum(1000).defaulted())
      .field("sku", &Limited::sku,
             json::Field().minLength(3).maxLength(8).pattern("^[A-Z]+-[0-9]+$").defaulted())
      .field("ids", &Limited::ids, json::Field().quoted().minimum(-5).minItems(1).maxItems(3))
      .field("counts", &Limited::counts, json::Field().quoted().maximum(99))
      .field("small", &Limited::small, json::Field().quoted())
      .field("ratio", &Limited::ratio, json::Field().minimum(0.25).maximum(1e21).defaulted())
      .field("names", &Limited::names, json::Field().maxLength(2).defaulted())
      .field("note", &Limited::note, json::Field().defaulted());
  return type;
}

struct Fixture : ::testing::Test {
  // A document with the given members after the type and the required ones.
  static std::string doc(const std::string& members = "") {
    return R"({"type":"test/Limited","id":1,"ids":["1"],"counts":{})" +
           (members.empty() ? "" : "," + members) + "}";
  }
  static std::string docWithout(const std::string& members) {
    return R"({"type":"test/Limited")" + (members.empty() ? "" : "," + members) + "}";
  }

  json::MessageType<Limited> type = declareLimited();
  ReadBothWays both{type};
};

std::string text(const Poco::JSON::Object::Ptr& schema) {
  std::ostringstream out;
  schema->stringify(out);
  return out.str();
}

TEST_F(Fixture, AQuotedIntegerIsWrittenAsAStringOfDigits) {
  auto message = std::make_unique<Limited>();
  message->id = 9007199254740993U;
  message->ids = {-5, 42};
  message->counts = {{"a", 99}};
  message->small = -7;
  std::unique_ptr<Message> held = std::move(message);

  EXPECT_EQ(both.write(held),
            R"({"id":"9007199254740993","quantity":7,"sku":"AB-1","ids":["-5","42"],)"
            R"("counts":{"a":"99"},"small":"-7","ratio":0.5,"names":[],"note":"none",)"
            R"("type":"test/Limited"})");
}

TEST_F(Fixture, AQuotedIntegerIsReadFromAStringOrAnInteger) {
  const auto read = [&](const std::string& document) {
    return dynamic_cast<Limited&>(*both.read(document));
  };
  EXPECT_EQ(read(docWithout(R"("id":"18446744073709551615","ids":[3],"counts":{})")).id,
            18446744073709551615U);
  EXPECT_EQ(read(docWithout(R"("id":18446744073709551615,"ids":["-5"],"counts":{})")).ids,
            std::vector<std::int64_t>{-5});
  EXPECT_EQ(read(doc(R"("small":"-32768")")).small, std::optional<std::int16_t>(-32768));
}

TEST_F(Fixture, AQuotedStringThatIsNotAnIntegerIsRefused) {
  for (const char* given : {"", "-", "01", "-0", "+1", "1e3", "1.0", " 1", "1 ", "0x10", "١"}) {
    EXPECT_EQ(
        both.refusal(docWithout(std::string(R"("id":")") + given + R"(","ids":[1],"counts":{})")),
        std::string(R"(member "/id": ")") + given + R"(" is not an integer)");
  }
  EXPECT_EQ(both.refusal(doc(R"("small":true)")),
            R"(member "/small": expected an integer, got a boolean)");
}

TEST_F(Fixture, AQuotedIntegerOutOfRangeIsRefusedWithItsValue) {
  EXPECT_EQ(both.refusal(docWithout(R"("id":"18446744073709551616","ids":[1],"counts":{})")),
            R"(member "/id": 18446744073709551616 is out of range)");
  EXPECT_EQ(both.refusal(docWithout(R"("id":"-1","ids":[1],"counts":{})")),
            R"(member "/id": -1 is out of range)");
  EXPECT_EQ(both.refusal(doc(R"("small":"32768")")), R"(member "/small": 32768 is out of range)");
  EXPECT_EQ(both.refusal(doc(R"("small":"-99999999999999999999")")),
            R"(member "/small": -99999999999999999999 is out of range)");
}

TEST_F(Fixture, ValueOptionsApplyToEachItemAndEachMapValue) {
  EXPECT_EQ(both.refusal(docWithout(R"("id":1,"ids":[1,"x"],"counts":{})")),
            R"(member "/ids/1": "x" is not an integer)");
  EXPECT_EQ(both.refusal(docWithout(R"("id":1,"ids":[1,-6],"counts":{})")),
            R"(member "/ids/1": -6 is less than the minimum -5)");
  EXPECT_EQ(both.refusal(docWithout(R"("id":1,"ids":[1],"counts":{"a/b":"100"})")),
            R"(member "/counts/a~1b": 100 is more than the maximum 99)");
  EXPECT_EQ(both.refusal(doc(R"("names":["ab","abc"])")),
            R"(member "/names/1": 3 characters, more than 2)");
}

TEST_F(Fixture, BoundsOnNumbersAreInclusiveAndNamedAsTheWriterWritesThem) {
  EXPECT_EQ(both.refusal(doc(R"("quantity":1)")), "(accepted)");
  EXPECT_EQ(both.refusal(doc(R"("quantity":1000)")), "(accepted)");
  EXPECT_EQ(both.refusal(doc(R"("quantity":0)")),
            R"(member "/quantity": 0 is less than the minimum 1)");
  EXPECT_EQ(both.refusal(doc(R"("quantity":1001)")),
            R"(member "/quantity": 1001 is more than the maximum 1000)");
  EXPECT_EQ(both.refusal(doc(R"("ratio":0.25)")), "(accepted)");
  EXPECT_EQ(both.refusal(doc(R"("ratio":0.2499999)")),
            R"(member "/ratio": 0.2499999 is less than the minimum 0.25)");
  EXPECT_EQ(both.refusal(doc(R"("ratio":2e21)")),
            R"(member "/ratio": 2e+21 is more than the maximum 1e+21)");
  EXPECT_EQ(both.refusal(doc(R"("ratio":0)")),
            R"(member "/ratio": 0 is less than the minimum 0.25)");
}

TEST_F(Fixture, LengthsCountCodePointsAndThePatternIsSearched) {
  EXPECT_EQ(both.refusal(doc(R"("names":["日本","é"])")), "(accepted)");
  EXPECT_EQ(both.refusal(doc(R"("names":["日本語"])")),
            R"(member "/names/0": 3 characters, more than 2)");
  EXPECT_EQ(both.refusal(doc(R"("sku":"A-")")), R"(member "/sku": 2 characters, fewer than 3)");
  EXPECT_EQ(both.refusal(doc(R"("sku":"ABCDE-123")")),
            R"(member "/sku": 9 characters, more than 8)");
  EXPECT_EQ(both.refusal(doc(R"("sku":"ab-12")")),
            R"(member "/sku": does not match "^[A-Z]+-[0-9]+$")");
  EXPECT_EQ(both.refusal(doc(R"("sku":"AB-12")")), "(accepted)");
}

TEST_F(Fixture, ItemCountsBoundTheMembersOwnArray) {
  EXPECT_EQ(both.refusal(docWithout(R"("id":1,"ids":[],"counts":{})")),
            R"(member "/ids": 0 items, fewer than 1)");
  EXPECT_EQ(both.refusal(docWithout(R"("id":1,"ids":[1,2,3,4],"counts":{})")),
            R"(member "/ids": 4 items, more than 3)");
  EXPECT_EQ(both.refusal(docWithout(R"("id":1,"ids":[1,2,3],"counts":{})")), "(accepted)");
}

TEST_F(Fixture, AnAliasIsReadButNeverWritten) {
  const auto message = both.read(docWithout(R"("limitedId":"12","ids":[1],"counts":{})"));
  EXPECT_EQ(dynamic_cast<Limited&>(*message).id, 12U);
  EXPECT_EQ(both.write(message).rfind(R"({"id":"12",)", 0), 0U);
  EXPECT_EQ(both.refusal(docWithout(R"("id":1,"limitedId":2,"ids":[1],"counts":{})")),
            R"(member "/id" is given twice, also as "limitedId")");
  EXPECT_EQ(both.refusal(docWithout(R"("ids":[1],"counts":{})")), R"(member "/id" is missing)");
}

TEST_F(Fixture, AnAliasCountsAsDeclaredWhereUnknownMembersAreRefused) {
  json::MessageType<Limited> strict("test/Strict");
  strict.field("id", &Limited::id, json::Field().alias("limitedId")).rejectUnknownMembers();
  ReadBothWays strictly(strict);

  EXPECT_EQ(strictly.refusal(R"({"type":"test/Strict","limitedId":1})"), "(accepted)");
  EXPECT_EQ(strictly.refusal(R"({"type":"test/Strict","id":1,"x":1})"),
            R"(member "/x" is not expected)");
}

TEST_F(Fixture, ADefaultedMemberMayBeAbsentButNotNull) {
  const auto message = both.read(docWithout(R"("id":1,"ids":[1],"counts":{})"));
  const auto& read = dynamic_cast<Limited&>(*message);
  EXPECT_EQ(read.quantity, 7);
  EXPECT_EQ(read.sku, "AB-1");
  EXPECT_EQ(read.ratio, 0.5);
  EXPECT_EQ(read.note, std::optional<std::string>("none"));
  EXPECT_EQ(both.refusal(doc(R"("quantity":null)")),
            R"(member "/quantity": expected an integer, got null)");
  // An optional member that is defaulted: absent keeps the default, null empties it.
  EXPECT_EQ(dynamic_cast<Limited&>(*both.read(doc(R"("note":null)"))).note, std::nullopt);
}

TEST_F(Fixture, AnOptionThatCannotApplyIsADeclarationErrorNamingTheMember) {
  json::MessageType<Limited> other("test/Other");
  EXPECT_THROW_TEXT(other.field("sku", &Limited::sku, json::Field().minimum(1)),
                    std::invalid_argument, R"(member "sku": minimum() does not apply to its type)");
  EXPECT_THROW_TEXT(other.field("sku", &Limited::sku, json::Field().quoted()),
                    std::invalid_argument, R"(member "sku": quoted() does not apply to its type)");
  EXPECT_THROW_TEXT(other.field("ratio", &Limited::ratio, json::Field().quoted()),
                    std::invalid_argument,
                    R"(member "ratio": quoted() does not apply to its type)");
  EXPECT_THROW_TEXT(other.field("id", &Limited::id, json::Field().maxLength(3)),
                    std::invalid_argument,
                    R"(member "id": maxLength() does not apply to its type)");
  EXPECT_THROW_TEXT(other.field("id", &Limited::id, json::Field().pattern("x")),
                    std::invalid_argument, R"(member "id": pattern() does not apply to its type)");
  EXPECT_THROW_TEXT(other.field("counts", &Limited::counts, json::Field().minItems(1)),
                    std::invalid_argument,
                    R"(member "counts": minItems() does not apply to its type)");
  EXPECT_THROW_TEXT(other.field("sku", &Limited::sku, json::Field().pattern("[")),
                    std::invalid_argument,
                    R"(member "sku": pattern "[" is not a regular expression)");
  EXPECT_THROW_TEXT(other.field("id", &Limited::id, json::Field().alias("type")),
                    std::invalid_argument, R"(member "type" is reserved for the type name)");
  other.field("id", &Limited::id, json::Field().alias("x"));
  EXPECT_THROW_TEXT(other.field("x", &Limited::quantity), std::invalid_argument,
                    R"(member "x" is declared twice)");
  EXPECT_THROW_TEXT(other.field("quantity", &Limited::quantity, json::Field().alias("id")),
                    std::invalid_argument, R"(member "id" is declared twice)");
  EXPECT_THROW_TEXT(json::Field().minimum(std::numeric_limits<double>::infinity()),
                    std::invalid_argument, "a bound is a number");
}

TEST_F(Fixture, EachOptionShowsInTheSchema) {
  const std::string schema = text(type.schema());
  for (
      const char* part : {
          R"("id":{"type":["integer","string"],"pattern":"^(?:[0-9]|[1-9][0-9]|)",
          R"("minimum":0,"maximum":18446744073709551615},"limitedId":{"type":["integer","string"])",
          R"("quantity":{"type":"integer","minimum":1,"maximum":1000,"default":7})",
          R"("sku":{"type":"string","minLength":3,"maxLength":8,"pattern":"^[A-Z]+-[0-9]+$",)"
          R"("default":"AB-1"})",
          R"("ids":{"type":"array","items":{"type":["integer","string"],)",
          R"("minimum":-5,"maximum":9223372036854775807},"minItems":1,"maxItems":3})",
          R"("ratio":{"type":"number","minimum":0.25,"maximum":1e+21,"default":0.5})",
          R"("note":{"anyOf":[{"type":"string"},{"type":"null"}],"default":"none"})",
          R"("required":["type","ids","counts"],)",
          R"("allOf":[{"anyOf":[{"required":["id"]},{"required":["limitedId"]}]},)"
          R"({"not":{"required":["id","limitedId"]}}])",
      }) {
    EXPECT_NE(schema.find(part), std::string::npos) << part << "\nin " << schema;
  }
}

TEST(FieldPatterns, AQuotedIntegersPatternMatchesExactlyTheDigitsInItsBounds) {
  json::MessageType<Limited> bounded("test/Bounded");
  bounded.field("quantity", &Limited::quantity, json::Field().quoted().minimum(-12).maximum(305));
  const auto quantity = bounded.schema()->getObject("properties")->getObject("quantity");
  const std::regex pattern(quantity->getValue<std::string>("pattern"));
  for (int n = -1000; n <= 1000; ++n) {
    EXPECT_EQ(std::regex_match(std::to_string(n), pattern), n >= -12 && n <= 305) << n;
  }
  for (const char* other : {"-0", "007", "+1", "", "-", "1.0"}) {
    EXPECT_FALSE(std::regex_match(other, pattern)) << other;
  }
}

}  // namespace
}  // namespace connector::typestest
