#include "connector/providers/JsonSerializerServiceProvider.hpp"

#include <cassert>
#include <stdexcept>
#include <string>
#include <utility>

#include "connector/providers/OpaqueMessage.hpp"
#include "connector/streams/OneShotPublisher.hpp"
#include "connector/streams/ReduceToDataBuffer.hpp"

namespace connector::json {

namespace {
constexpr const char* kContentType = "application/json";
constexpr const char* kInvalidFuture = "Future state isn't valid!";
}  // namespace

JsonSerializerServiceProvider::JsonSerializerServiceProvider(
    std::shared_ptr<JsonSerializer> serializer)
    : serializer(std::move(serializer)) {}

JsonSerializerServiceProvider::~JsonSerializerServiceProvider() = default;

void JsonSerializerServiceProvider::start() {}

void JsonSerializerServiceProvider::stop() {}

Future<std::unique_ptr<Message>> JsonSerializerServiceProvider::deliver(
    std::unique_ptr<Message>&& message, Address&& address, std::shared_ptr<Context>&& context) {
  // The request is only read; it stays with the caller.
  std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>> requestJson =
      serializer->serialize(message);

  common::DataBuffer bytes;
  {
    Future<common::DataBuffer> joined = reduceSerializedPublisherToDataBuffer(requestJson);
    if (!joined.valid()) {
      throw std::runtime_error(kInvalidFuture);
    }
    bytes = joined.get();
  }

  std::unique_ptr<Message> outgoing =
      std::make_unique<OpaqueMessage>(std::string(kContentType), std::move(bytes));
  std::unique_ptr<Message> answer;
  {
    Future<std::unique_ptr<Message>> answered =
        context->deliver(std::move(outgoing), std::move(address));
    if (!answered.valid()) {
      throw std::runtime_error(kInvalidFuture);
    }
    answer = answered.get();
  }

  // The far side answers with an OpaqueMessage: that is the bridge's contract, and an
  // answer of another type has no meaning to recover from here.
  auto* opaque = answer ? dynamic_cast<OpaqueMessage*>(answer.get()) : nullptr;
  assert(opaque != nullptr && "the far side of a JSON bridge answers with an OpaqueMessage");
  auto answerBytes = std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
      std::move(opaque->payload));
  return serializer->deserialize(std::move(answerBytes));
}

}  // namespace connector::json
