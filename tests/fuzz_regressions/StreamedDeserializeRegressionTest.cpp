// Inputs found by the fuzz targets of the streamed deserialize, kept as tests: each must
// end exactly as parsing the whole document from one std::istream ends, however the
// bytes are cut into chunks.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "serializer/ChunkPublisher.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::json {
namespace {

using testing::ChunkPublisher;

// The text Poco's parser gives for the document read whole from a std::istringstream.
std::string parserErrorOf(const std::string& document) {
  try {
    Poco::JSON::Parser parser(new Poco::JSON::ParseHandler(false));
    std::istringstream in(document);
    parser.parse(in);
  } catch (const Poco::Exception& e) {
    return e.message();
  }
  return "";
}

class StreamedDeserializeRegressionTest : public ::testing::Test {
 protected:
  Future<std::unique_ptr<Message>> byType(const std::string& document, std::size_t chunk) {
    return serializer->deserialize(
        std::make_shared<ChunkPublisher>(ChunkPublisher::split(document, chunk)));
  }

  std::shared_ptr<JsonSerializerImpl> serializer = std::make_shared<JsonSerializerImpl>();
};

// A byte 0xFF read through a plain char compares equal to EOF; the stream must not end
// there. Found as "[\xff]": the streamed parse reported "unexpected end of text".
TEST_F(StreamedDeserializeRegressionTest, AByteFFIsReadAsAByteNotAsTheEndOfTheStream) {
  const std::string document = "[\xff]";
  const std::string expected = parserErrorOf(document);
  ASSERT_NE(expected.find("unexpected byte"), std::string::npos) << expected;
  for (std::size_t chunk : {1U, 2U, 3U}) {
    SCOPED_TRACE(chunk);
    EXPECT_THROW_TEXT(byType(document, chunk).get(), std::invalid_argument,
                      "Parsing error: " + expected);
  }
}

// Bytes after a 0xFF still count: a document must not be cut short at one.
TEST_F(StreamedDeserializeRegressionTest, BytesAfterAByteFFAreStillRead) {
  const std::string document = "{\"type\":\"connector/Message\",\"x\":[\xff]}";
  const std::string expected = parserErrorOf(document);
  ASSERT_FALSE(expected.empty());
  EXPECT_THROW_TEXT(byType(document, 5).get(), std::invalid_argument, "Parsing error: " + expected);
  EXPECT_THROW_TEXT(
      serializer
          ->deserialize("connector/Message",
                        std::make_shared<ChunkPublisher>(ChunkPublisher::split(document, 7)))
          .get(),
      std::invalid_argument, "Parsing error for type 'connector/Message': " + expected);
}

}  // namespace
}  // namespace connector::json
