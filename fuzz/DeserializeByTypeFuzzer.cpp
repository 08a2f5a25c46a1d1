// Fuzz target: the streamed deserialize that picks the converter by the "type" member.
// The input's header (support/FuzzInput.hpp) cuts the document into chunks; the result
// must be the same as parsing the whole document from one stream, every failure must be
// a std::invalid_argument with a documented text, and a message read must serialize to
// text that reads back to the same text.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/FuzzHarness.hpp"
#include "support/FuzzInput.hpp"

namespace {

using namespace connector::fuzzing;

// What the operation must report for the whole document.
Outcome expectedFor(Harness& harness, const std::string& document) {
  Outcome outcome;
  try {
    try {
      outcome.message = harness.serializer->deserialize(Harness::parseWhole(document));
    } catch (const Poco::Exception& e) {
      throw std::invalid_argument("Parsing error: " + e.message());
    } catch (const std::exception& e) {
      throw std::invalid_argument(std::string("Error while parsing: ") + e.what());
    } catch (...) {
      throw std::invalid_argument("Unknown error while parsing");
    }
  } catch (const std::invalid_argument& e) {
    outcome.failed = true;
    outcome.error = e.what();
  }
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Harness& harness = Harness::instance();
  const ChunkedInput input = ChunkedInput::read(data, size);

  Outcome streamed = resolve(harness.serializer->deserialize(input.publisher()));
  const Outcome whole = expectedFor(harness, input.document);
  require(streamed.failed == whole.failed,
          "chunked and whole parse disagree: '" + streamed.error + "' vs '" + whole.error + "'");
  if (streamed.failed) {
    require(startsWith(streamed.error, "Parsing error: ") ||
                startsWith(streamed.error, "Error while parsing: ") ||
                streamed.error == "Unknown error while parsing",
            "undocumented text: " + streamed.error);
    require(streamed.error == whole.error,
            "texts differ: '" + streamed.error + "' vs '" + whole.error + "'");
    return 0;
  }

  const std::string text = harness.textOf(streamed.message);
  require(text == harness.textOf(whole.message), "chunked and whole parse read different messages");
  Outcome again = resolve(harness.serializer->deserialize(
      std::make_shared<ChunkedPublisher>(std::vector<std::string>{text})));
  require(!again.failed, "the serialized form does not read back: " + again.error + " in " + text);
  require(harness.textOf(again.message) == text, "the serialized form changed on reading: " + text);
  return 0;
}
