// How the serializer keeps direct codecs beside converters: registerType with a codec
// puts one there; every other way of registering or deregistering the name drops it; a
// serializer of a derived class, and any other serializer, keeps to the converters; a
// codec that declines hands the same message or bytes to the converters.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <sstream>
#include <string>

#include <Poco/JSON/Object.h>

#include "support/DirectDifferential.hpp"
#include "support/ExpectThrow.hpp"
#include "support/StagedPublisher.hpp"
#include "support/StandInSerializer.hpp"

namespace connector::testing {
namespace {

struct Note : Message {
  std::string text;
  int weight = 0;
};

constexpr const char* kNote = "test/Note";

// A direct codec that shows where it was used: it writes {"spy":<id>} and declines
// every document, counting both.
class SpyCodec final : public json::DirectCodec {
 public:
  explicit SpyCodec(int id) : id(id) {}
  bool write(const Message& /*message*/, const std::string* /*typeName*/,
             std::string& out) const noexcept override {
    ++writes;
    out += "{\"spy\":" + std::to_string(id) + "}";
    return true;
  }
  std::unique_ptr<Message> read(json::detail::DirectReader& /*in*/) const noexcept override {
    ++reads;
    return nullptr;
  }
  int id;
  mutable std::atomic<int> writes{0};
  mutable std::atomic<int> reads{0};
};

json::MessageType<Note> noteType() {
  json::MessageType<Note> note(kNote);
  note.field("text", &Note::text).field("weight", &Note::weight);
  return note;
}

std::unique_ptr<Message> sampleNote() {
  auto note = std::make_unique<Note>();
  note->text = "hi";
  note->weight = 3;
  return note;
}

std::string written(json::JsonSerializer& serializer) {
  std::ostringstream out;
  serializer.serialize(sampleNote(), out);
  return out.str();
}

std::string readBack(json::JsonSerializer& serializer, const std::string& text) {
  std::unique_ptr<Message> message = serializer.deserialize(oneShot(text)()).get();
  const auto& note = dynamic_cast<const Note&>(*message);
  return note.text + "/" + std::to_string(note.weight);
}

constexpr const char* kConverterText = R"({"text":"hi","weight":3,"type":"test/Note"})";

class DirectCodecRegistryTest : public ::testing::Test {
 protected:
  void registerSpy(json::JsonSerializerImpl& on, const std::shared_ptr<SpyCodec>& codec) {
    on.registerType(kNote, typeid(Note), note.serializer(), note.deserializer(), codec);
  }

  json::MessageType<Note> note = noteType();
  std::shared_ptr<json::JsonSerializerImpl> serializer =
      std::make_shared<json::JsonSerializerImpl>();
  std::shared_ptr<SpyCodec> spy = std::make_shared<SpyCodec>(1);
};

TEST_F(DirectCodecRegistryTest, ACodecBesideTheConvertersWritesAndReadsFirst) {
  registerSpy(*serializer, spy);
  EXPECT_EQ(written(*serializer), R"({"spy":1})");
  EXPECT_EQ(readBack(*serializer, kConverterText), "hi/3");  // declined, then converters
  EXPECT_EQ(spy->writes, 1);
  EXPECT_EQ(spy->reads, 1);
}

TEST_F(DirectCodecRegistryTest, RegisteringTheNameAgainWithConvertersDropsTheCodec) {
  registerSpy(*serializer, spy);
  serializer->registerType(kNote, typeid(Note), note.serializer(), note.deserializer());
  EXPECT_EQ(written(*serializer), kConverterText);
  EXPECT_EQ(readBack(*serializer, kConverterText), "hi/3");
  EXPECT_EQ(spy->writes, 0);
  EXPECT_EQ(spy->reads, 0);
}

TEST_F(DirectCodecRegistryTest, DeregisteringTheNameDropsTheCodec) {
  registerSpy(*serializer, spy);
  serializer->deregisterType(kNote);
  serializer->registerTypeIfNotRegistered(kNote, typeid(Note), note.serializer(),
                                          note.deserializer());
  EXPECT_EQ(written(*serializer), kConverterText);
  EXPECT_EQ(spy->writes, 0);
}

TEST_F(DirectCodecRegistryTest, DeregisteringTheTypeDropsTheCodec) {
  registerSpy(*serializer, spy);
  serializer->deregisterType(typeid(Note));
  EXPECT_TRUE(serializer->registerTypeIfNotRegistered(kNote, typeid(Note), note.serializer(),
                                                      note.deserializer()));
  EXPECT_EQ(written(*serializer), kConverterText);
  EXPECT_EQ(readBack(*serializer, kConverterText), "hi/3");
  EXPECT_EQ(spy->writes, 0);
  EXPECT_EQ(spy->reads, 0);
}

TEST_F(DirectCodecRegistryTest, RegisteringWithAnotherCodecReplacesIt) {
  registerSpy(*serializer, spy);
  auto second = std::make_shared<SpyCodec>(2);
  registerSpy(*serializer, second);
  EXPECT_EQ(written(*serializer), R"({"spy":2})");
  EXPECT_EQ(spy->writes, 0);
  note.registerWith(*serializer);  // the declaration's own codec
  EXPECT_EQ(written(*serializer), kConverterText);
  EXPECT_EQ(second->writes, 1);
}

TEST_F(DirectCodecRegistryTest, RegisteringIfNotRegisteredKeepsTheCodecWhileTheNameIsTaken) {
  registerSpy(*serializer, spy);
  EXPECT_FALSE(serializer->registerTypeIfNotRegistered(kNote, typeid(Note), note.serializer(),
                                                       note.deserializer()));
  EXPECT_EQ(written(*serializer), R"({"spy":1})");
}

TEST_F(DirectCodecRegistryTest, ACodecThatDeclinesHandsFailuresToTheConvertersUnchanged) {
  registerSpy(*serializer, spy);
  EXPECT_THROW_TEXT(serializer->deserialize(oneShot(R"({"type":"test/Note","text":7})")()).get(),
                    std::invalid_argument,
                    "Error while parsing: Parsing error for type 'test/Note': member \"/text\": "
                    "expected a string, got an integer");
  const auto failing = std::make_shared<StagedPublisher>(
      std::vector<std::string>{R"({"type":"test/No)"},
      std::make_exception_ptr(std::runtime_error("link dropped")));
  EXPECT_THROW_TEXT(serializer->deserialize(failing).get(), std::invalid_argument,
                    "Error while parsing: link dropped");
  EXPECT_EQ(spy->reads, 1);  // the failed stream never reached the codec
}

// A serializer derived from JsonSerializerImpl that records the registrations it sees.
class RecordingSerializer : public json::JsonSerializerImpl {
 public:
  void registerType(const std::string& name, const std::type_info& type, json::SerializerFn s,
                    json::DeserializerFn d) override {
    seen.push_back(name);
    JsonSerializerImpl::registerType(name, type, std::move(s), std::move(d));
  }
  using JsonSerializerImpl::registerType;
  std::vector<std::string> seen;
};

TEST_F(DirectCodecRegistryTest, ADerivedSerializerSeesEveryRegistrationAndKeepsToTheConverters) {
  auto derived = std::make_shared<RecordingSerializer>();
  note.registerWith(*derived);
  EXPECT_EQ(derived->seen, std::vector<std::string>{kNote});
  registerSpy(*derived, spy);  // even a codec given outright is not used
  EXPECT_EQ(written(*derived), kConverterText);
  EXPECT_EQ(readBack(*derived, kConverterText), "hi/3");
  EXPECT_EQ(spy->writes, 0);
  EXPECT_EQ(spy->reads, 0);
}

TEST_F(DirectCodecRegistryTest, AnotherSerializerGetsTheConvertersThroughRegisterType) {
  auto standIn = std::make_shared<StandInSerializer>();
  note.registerWith(*standIn);
  EXPECT_EQ(written(*standIn->real), kConverterText);
  EXPECT_EQ(readBack(*standIn->real, kConverterText), "hi/3");
}

// One C++ member under two names: the converters read them in declaration order (the
// later name wins), whatever their order in the text; so does the direct codec, which
// leaves such a type's reading to the converters.
struct Alias : Message {
  int value = 0;
};

TEST_F(DirectCodecRegistryTest, OneMemberUnderTwoNamesReadsInDeclarationOrderOnBothPaths) {
  json::MessageType<Alias> alias("test/Alias");
  alias.field("first", &Alias::value).field("second", &Alias::value);
  DirectDifferential both;
  both.declare(alias);
  for (const char* document : {R"({"type":"test/Alias","first":1,"second":2})",
                               R"({"type":"test/Alias","second":2,"first":1})"}) {
    EXPECT_EQ(both.compareRead(nullptr, oneShot(document)), "") << document;
    std::unique_ptr<Message> read = both.direct->deserialize(oneShot(document)()).get();
    EXPECT_EQ(dynamic_cast<const Alias&>(*read).value, 2) << document;
  }
}

}  // namespace
}  // namespace connector::testing
