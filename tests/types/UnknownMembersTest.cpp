// keepUnknownMembers (json::UnknownMembers): the members a declared type does not know are
// kept sorted by name, each as compact JSON text written as this library writes JSON,
// whichever reading path (and whatever order in the text); they are written back after
// the declared members; and the refusals when writing and declaring.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"
#include "types/ReadBothWays.hpp"

namespace connector::typestest {
namespace {

struct Part {
  std::string sku;
  json::UnknownMembers unknown;
};

struct Note {
  std::string text;
  json::UnknownMembers unknown;
};
using Attachment = std::variant<Note>;

struct Envelope : connector::Message {
  std::string id;
  std::vector<Part> parts;
  Attachment attachment;
  json::UnknownMembers unknown;
};

json::MessageType<Envelope> declareEnvelope() {
  const auto part =
      json::Struct<Part>().field("sku", &Part::sku).keepUnknownMembers(&Part::unknown);
  const auto attachment = json::Variant<Attachment>("kind").alternative(
      "note", json::Struct<Note>().field("text", &Note::text).keepUnknownMembers(&Note::unknown));
  json::MessageType<Envelope> type("test/Envelope");
  type.field("id", &Envelope::id, json::Field().alias("envelopeId"))
      .field("parts", &Envelope::parts, part)
      .field("attachment", &Envelope::attachment, attachment)
      .keepUnknownMembers(&Envelope::unknown);
  return type;
}

class KeptMembers : public ::testing::Test {
 protected:
  const Envelope& read(const std::string& document) {
    last = both.read(document);
    return dynamic_cast<const Envelope&>(*last);
  }

  json::MessageType<Envelope> type = declareEnvelope();
  ReadBothWays both{type};
  std::unique_ptr<Message> last;
};

constexpr const char* kEnvelope =
    R"({"zeta":[1, 2.50,{"b":null,"a":"\u00e9\/\u0001"}],"type":"test/Envelope","id":"E",)"
    R"("parts":[{"sku":"s","colour":"red"}],"attachment":{"kind":"note","text":"t","x":1e2},)"
    R"("alpha":-0,"Beta":true,"big":18446744073709551615,"neg":-9007199254740993})";

TEST_F(KeptMembers, UnknownMembersAreKeptSortedAsCompactText) {
  const Envelope& envelope = read(kEnvelope);
  EXPECT_EQ(envelope.unknown,
            (json::UnknownMembers{{"Beta", "true"},
                                  {"alpha", "0"},
                                  {"big", "18446744073709551615"},
                                  {"neg", "-9007199254740992"},
                                  {"zeta", "[1,2.5,{\"a\":\"é/\\u0001\",\"b\":null}]"}}));
  EXPECT_EQ(envelope.parts.at(0).unknown, (json::UnknownMembers{{"colour", "\"red\""}}));
  // Neither "type" nor a variant's tag is ever kept.
  EXPECT_EQ(std::get<Note>(envelope.attachment).unknown, (json::UnknownMembers{{"x", "100"}}));
}

TEST_F(KeptMembers, BothReadingPathsKeepTheSameText) {
  Poco::JSON::Parser parser;
  Poco::JSON::Object::Ptr object = parser.parse(kEnvelope).extract<Poco::JSON::Object::Ptr>();
  const auto fromObject = both.serializer->deserialize(std::move(object));
  EXPECT_EQ(dynamic_cast<const Envelope&>(*fromObject).unknown, read(kEnvelope).unknown);
}

TEST_F(KeptMembers, KeptMembersAreWrittenAfterTheDeclaredOnesInTheirOrder) {
  auto envelope = std::make_unique<Envelope>();
  envelope->id = "E";
  envelope->parts = {{"s", {{"colour", "\"red\""}}}};
  envelope->attachment = Note{"t", {{"x", " 1.0 "}}};
  envelope->unknown = {{"zeta", "{ \"b\" : 1 , \"a\" : [ ] }"}, {"alpha", "-0"}};
  std::unique_ptr<Message> held = std::move(envelope);

  EXPECT_EQ(both.write(held),
            R"({"id":"E","parts":[{"sku":"s","colour":"red"}],)"
            R"("attachment":{"kind":"note","text":"t","x":1},"zeta":{"a":[],"b":1},"alpha":0,)"
            R"("type":"test/Envelope"})");
}

TEST_F(KeptMembers, ReadingThenWritingKeepsWhatANewerSenderSent) {
  const std::string text = both.write(both.read(kEnvelope));
  EXPECT_EQ(text, R"({"id":"E","parts":[{"sku":"s","colour":"red"}],)"
                  R"("attachment":{"kind":"note","text":"t","x":100},"Beta":true,"alpha":0,)"
                  R"("big":18446744073709551615,"neg":-9007199254740992,)"
                  R"("zeta":[1,2.5,{"a":"é/\u0001","b":null}],"type":"test/Envelope"})");
  EXPECT_EQ(both.write(both.read(text)), text);
}

TEST_F(KeptMembers, AKeptNameThatIsDeclaredIsRefusedWhenWriting) {
  const std::string prefix = "Error while serializing: test/Envelope, ";
  for (const char* name : {"id", "envelopeId", "type"}) {
    auto envelope = std::make_unique<Envelope>();
    envelope->unknown = {{name, "1"}};
    std::unique_ptr<Message> held = std::move(envelope);
    EXPECT_EQ(both.writeRefusal(held),
              prefix + "member \"/" + name + "\" is declared and also kept as unknown");
  }
  auto envelope = std::make_unique<Envelope>();
  envelope->attachment = Note{"t", {{"kind", "1"}}};
  std::unique_ptr<Message> held = std::move(envelope);
  EXPECT_EQ(both.writeRefusal(held),
            prefix + R"(member "/attachment/kind" is declared and also kept as unknown)");
}

TEST_F(KeptMembers, AKeptTextThatIsNotOneJsonValueIsRefusedWhenWriting) {
  const std::string prefix = "Error while serializing: test/Envelope, ";
  for (const char* text : {"", "1,2", "{", "nul", "[1]]", "'x'"}) {
    auto envelope = std::make_unique<Envelope>();
    envelope->parts = {{"s", {{"x", text}}}};
    std::unique_ptr<Message> held = std::move(envelope);
    EXPECT_EQ(both.writeRefusal(held), prefix + R"(member "/parts/0/x": the kept text is not JSON)")
        << text;
  }
}

TEST_F(KeptMembers, AKeptNameGivenTwiceIsWrittenOnce) {
  auto envelope = std::make_unique<Envelope>();
  envelope->unknown = {{"x", "1"}, {"y", "2"}, {"x", "3"}};
  std::unique_ptr<Message> held = std::move(envelope);
  EXPECT_EQ(both.write(held), R"({"id":"","parts":[],"attachment":{"kind":"note","text":""},)"
                              R"("x":3,"y":2,"type":"test/Envelope"})");
}

TEST_F(KeptMembers, KeepingAndRefusingUnknownMembersExcludeEachOther) {
  json::MessageType<Envelope> envelope("test/Other");
  envelope.keepUnknownMembers(&Envelope::unknown);
  EXPECT_THROW_TEXT(envelope.rejectUnknownMembers(), std::invalid_argument,
                    "unknown members are either kept or refused, not both");
  auto part = json::Struct<Part>().rejectUnknownMembers();
  EXPECT_THROW_TEXT(part.keepUnknownMembers(&Part::unknown), std::invalid_argument,
                    "unknown members are either kept or refused, not both");
}

}  // namespace
}  // namespace connector::typestest
