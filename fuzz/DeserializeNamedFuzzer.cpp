// Fuzz target: the streamed deserialize with the converter chosen by name
// ("connector/Message", or "fuzz/Sample" when bit 6 of the header is set). Same checks as
// the by-"type" target, with the named operation's texts.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/FuzzHarness.hpp"
#include "support/FuzzInput.hpp"

namespace {

using namespace connector::fuzzing;

Outcome expectedFor(Harness& harness, const std::string& name, const std::string& document) {
  Outcome outcome;
  try {
    try {
      outcome.message = harness.serializer->deserialize(name, Harness::parseWhole(document));
    } catch (const Poco::Exception& e) {
      throw std::invalid_argument("Parsing error for type '" + name + "': " + e.message());
    } catch (...) {
      throw std::invalid_argument("Unknown error while parsing '" + name + "'");
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
  const std::string name = input.choice ? kSample : kPlain;

  Outcome streamed = resolve(harness.serializer->deserialize(name, input.publisher()));
  const Outcome whole = expectedFor(harness, name, input.document);
  require(streamed.failed == whole.failed,
          "chunked and whole parse disagree: '" + streamed.error + "' vs '" + whole.error + "'");
  if (streamed.failed) {
    require(startsWith(streamed.error, "Parsing error for type '" + name + "': ") ||
                streamed.error == "Unknown error while parsing '" + name + "'",
            "undocumented text: " + streamed.error);
    require(streamed.error == whole.error,
            "texts differ: '" + streamed.error + "' vs '" + whole.error + "'");
    return 0;
  }

  const std::string text = harness.textOf(streamed.message);
  require(text == harness.textOf(whole.message), "chunked and whole parse read different messages");
  Outcome again = resolve(harness.serializer->deserialize(
      name, std::make_shared<ChunkedPublisher>(std::vector<std::string>{text})));
  require(!again.failed, "the serialized form does not read back: " + again.error + " in " + text);
  require(harness.textOf(again.message) == text, "the serialized form changed on reading: " + text);
  return 0;
}
