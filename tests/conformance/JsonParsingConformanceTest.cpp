// Every document of the JSON parsing conformance suite, sent as the payload of an
// OpaqueMessage through JsonDeserializerServiceProvider::handle: each one must end in an
// answer or in the documented std::invalid_argument, never in a crash, a hang or another
// exception. The ASan+UBSan pass runs this suite too.
//
// Each file is sent twice: as it stands (no conformance document names a registered type,
// so only the error texts are checked), and wrapped as the member "value" of a registered
// message, where a document that the JSON parser accepts on its own must come back
// unchanged in the answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>

#include <connector/json.hpp>

#include "support/SharedData.hpp"

namespace connector::json {
namespace {

// A message that carries one arbitrary JSON value.
struct CarriedValue : Message {
  explicit CarriedValue(Poco::Dynamic::Var value) : value(std::move(value)) {}
  Poco::Dynamic::Var value;
};

constexpr const char* kCarriedValue = "conformance/Value";

// Answers every request with the request itself.
class EchoContext : public Context {
 public:
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                           Address&& /*address*/) override {
    ++calls;
    return makeReadyFuture<std::unique_ptr<Message>>(std::move(message));
  }
  int calls = 0;
};

// What one call of handle ended in.
struct Outcome {
  std::optional<std::string> answer;  // the reply's payload, when handle answered
  std::string error;                  // the std::invalid_argument text otherwise
};

bool isDocumentedParseError(const std::string& text) {
  auto startsWith = [&text](const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
  };
  return startsWith("Parsing error: ") || startsWith("Error while parsing: ") ||
         text == "Unknown error while parsing";
}

// The compact text of a JSON value, or nothing when the parser rejects the document.
std::optional<std::string> directlyParsed(const std::string& document) {
  try {
    Poco::JSON::Parser parser;
    Poco::Dynamic::Var value = parser.parse(document);
    std::ostringstream out;
    Poco::JSON::Stringifier::stringify(value, out, 0, -1);
    return out.str();
  } catch (const Poco::Exception&) {
    return std::nullopt;
  }
}

struct ConformanceFile {
  std::string name;
  std::string bytes;
};

// The suite's files whose names start with prefix ("y_", "n_" or "i_"), sorted.
std::vector<ConformanceFile> conformanceFiles(const std::string& prefix) {
  const auto dir = testing::sharedDataDir() / "json-test-suite" / "test_parsing";
  std::vector<ConformanceFile> files;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    const std::string name = entry.path().filename().string();
    if (name.compare(0, prefix.size(), prefix) == 0) {
      files.push_back({name, testing::readFile(entry.path())});
    }
  }
  std::sort(files.begin(), files.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  return files;
}

class JsonParsingConformanceTest : public ::testing::Test {
 protected:
  JsonParsingConformanceTest() {
    serializer->registerType(
        kCarriedValue, typeid(CarriedValue),
        [](const std::unique_ptr<Message>& m) {
          Poco::SharedPtr<Poco::JSON::Object> o = new Poco::JSON::Object();
          o->set("value", static_cast<const CarriedValue&>(*m).value);
          return o;
        },
        [](Poco::SharedPtr<Poco::JSON::Object> o) -> std::unique_ptr<Message> {
          return std::make_unique<CarriedValue>(o->get("value"));
        });
    provider->setRunning(true);
  }

  // Runs handle on the bytes; records a test failure for anything but an answer or a
  // documented parse error.
  Outcome handle(const std::string& bytes) {
    Outcome outcome;
    auto request = std::make_unique<OpaqueMessage>("application/json",
                                                   common::DataBuffer(std::string_view(bytes)));
    const int callsBefore = context->calls;
    try {
      auto reply = provider
                       ->handle(std::move(request), Address("conformance"),
                                std::shared_ptr<Context>(context))
                       .get();
      auto* opaque = dynamic_cast<OpaqueMessage*>(reply.get());
      if (opaque == nullptr) {
        ADD_FAILURE() << "the answer is not an OpaqueMessage";
        return outcome;
      }
      EXPECT_EQ(opaque->contentType, "application/json");
      outcome.answer = std::string(opaque->payload.view());
    } catch (const std::invalid_argument& e) {
      outcome.error = e.what();
      EXPECT_TRUE(isDocumentedParseError(outcome.error)) << "undocumented text: " << e.what();
      EXPECT_EQ(context->calls, callsBefore) << "a request that failed was sent on";
    } catch (const std::exception& e) {
      ADD_FAILURE() << "undocumented exception " << typeid(e).name() << ": " << e.what();
    } catch (...) {
      ADD_FAILURE() << "a non-standard exception left handle";
    }
    return outcome;
  }

  // Sends the file as it stands and wrapped as a value. With mustCarry (well-formed
  // documents), a document that the parser takes on its own must be answered, and the
  // answer must hold the value the parser reads from it.
  void checkFile(const ConformanceFile& file, bool mustCarry) {
    SCOPED_TRACE(file.name);
    const Outcome bare = handle(file.bytes);
    // No conformance document names a registered type, so none may be answered.
    EXPECT_FALSE(bare.answer.has_value()) << *bare.answer;

    const std::string wrapped =
        std::string(R"({"type":")") + kCarriedValue + R"(","value":)" + file.bytes + "}";
    const Outcome carried = handle(wrapped);
    const std::optional<std::string> expected = directlyParsed(file.bytes);
    if (!mustCarry || !expected) {
      return;
    }
    ASSERT_TRUE(carried.answer.has_value()) << carried.error;
    ++answered;
    EXPECT_EQ(*carried.answer,
              std::string(R"({"type":")") + kCarriedValue + R"(","value":)" + *expected + "}");
  }

  std::shared_ptr<JsonSerializerImpl> serializer = std::make_shared<JsonSerializerImpl>();
  std::shared_ptr<JsonDeserializerServiceProvider> provider =
      std::make_shared<JsonDeserializerServiceProvider>(serializer);
  std::shared_ptr<EchoContext> context = std::make_shared<EchoContext>();
  int answered = 0;
};

TEST_F(JsonParsingConformanceTest, TheSuiteIsThere) {
  EXPECT_EQ(conformanceFiles("y_").size(), 95u);
  EXPECT_EQ(conformanceFiles("n_").size(), 188u);
  EXPECT_EQ(conformanceFiles("i_").size(), 35u);
}

TEST_F(JsonParsingConformanceTest, AcceptedDocumentsComeBackUnchangedInTheAnswer) {
  const auto files = conformanceFiles("y_");
  ASSERT_FALSE(files.empty());
  int parsedAlone = 0;
  for (const auto& file : files) {
    checkFile(file, true);
    if (directlyParsed(file.bytes)) {
      ++parsedAlone;
    }
  }
  // Every document the parser takes on its own is answered when it travels as a value.
  EXPECT_EQ(answered, parsedAlone);
  EXPECT_GT(parsedAlone, 80);
}

TEST_F(JsonParsingConformanceTest, RejectedDocumentsEndInAnAnswerOrADocumentedError) {
  const auto files = conformanceFiles("n_");
  ASSERT_FALSE(files.empty());
  for (const auto& file : files) {
    checkFile(file, false);
  }
}

TEST_F(JsonParsingConformanceTest, ImplementationDefinedDocumentsEndInAnAnswerOrADocumentedError) {
  const auto files = conformanceFiles("i_");
  ASSERT_FALSE(files.empty());
  for (const auto& file : files) {
    checkFile(file, false);
  }
}

TEST_F(JsonParsingConformanceTest, ABareConformanceDocumentNamesNoTypeAndFailsWithParsingError) {
  // y_object_simple.json holds {"a":[]}: it parses, but has no "type" member.
  const auto files = conformanceFiles("y_object_simple.json");
  ASSERT_EQ(files.size(), 1u);
  const Outcome outcome = handle(files[0].bytes);
  EXPECT_FALSE(outcome.answer.has_value());
  EXPECT_EQ(outcome.error, "Parsing error: Can not convert empty value.");
  EXPECT_EQ(context->calls, 0);
}

}  // namespace
}  // namespace connector::json
