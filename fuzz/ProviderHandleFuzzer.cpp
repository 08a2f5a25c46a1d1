// Fuzz target: JsonDeserializerServiceProvider::handle on an OpaqueMessage whose payload
// is the input, with a context that answers every request with the request itself.
// handle must either answer at once with an OpaqueMessage that echoes the content type
// and holds the answer's JSON, or throw a std::invalid_argument with a documented text
// without sending anything on.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/FuzzHarness.hpp"

namespace {

using namespace connector;
using namespace connector::fuzzing;

class EchoContext : public Context {
 public:
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                           Address&& address) override {
    ++calls;
    require(address.str() == "fuzz/address", "the request went to another address");
    return makeReadyFuture<std::unique_ptr<Message>>(std::move(message));
  }
  int calls = 0;
};

constexpr const char* kContentType = "application/json; charset=utf-8";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Harness& harness = Harness::instance();
  static const auto provider =
      std::make_shared<json::JsonDeserializerServiceProvider>(harness.serializer);
  const auto seen = std::make_shared<EchoContext>();

  auto request =
      std::make_unique<json::OpaqueMessage>(kContentType, common::DataBuffer(data, size));
  json::OpaqueMessage& sent = *request;
  Future<std::unique_ptr<Message>> reply;
  try {
    reply = provider->handle(std::move(request), Address("fuzz/address"),
                             std::shared_ptr<Context>(seen));
  } catch (const std::invalid_argument& e) {
    const std::string text = e.what();
    require(startsWith(text, "Parsing error: ") || startsWith(text, "Error while parsing: ") ||
                text == "Unknown error while parsing",
            "undocumented text: " + text);
    require(seen->calls == 0, "a request that failed was sent on");
    return 0;
  } catch (const std::exception& e) {
    failWith(std::string("undocumented exception: ") + e.what());
  }
  require(sent.payload.size == 0, "the request kept its payload");
  require(seen->calls == 1, "the typed request was not sent on exactly once");

  Outcome answered = resolve(std::move(reply));
  require(!answered.failed, "handle answered with a failed future: " + answered.error);
  auto* opaque = dynamic_cast<json::OpaqueMessage*>(answered.message.get());
  require(opaque != nullptr, "the answer is not an OpaqueMessage");
  require(opaque->contentType == kContentType, "the content type was not echoed");

  // The answer's bytes are the serialized form of a message the serializer reads back.
  const std::string payload(opaque->payload.view());
  Outcome back = resolve(harness.serializer->deserialize(
      std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
          common::DataBuffer(std::string_view(payload)))));
  require(!back.failed, "the answer does not read back: " + back.error + " in " + payload);
  require(harness.textOf(back.message) == payload, "the answer changed on reading: " + payload);
  return 0;
}
