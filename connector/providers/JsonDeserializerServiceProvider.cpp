#include "connector/providers/JsonDeserializerServiceProvider.hpp"

#include <stdexcept>
#include <string>
#include <utility>

#include "connector/futures/MakeFuture.hpp"
#include "connector/streams/OneShotPublisher.hpp"
#include "connector/streams/ReduceToDataBuffer.hpp"

namespace connector {

// The typed dispatch of opaque messages is instantiated once, here.
template class ServiceMessage<json::OpaqueServiceProvider>;
template class MessageAPI<json::OpaqueMessage, json::OpaqueServiceProvider>;
template class ServiceProviderAPI<json::OpaqueServiceProvider>;

namespace json {

namespace {
constexpr const char* kInvalidFuture = "Future state isn't valid!";
}  // namespace

JsonDeserializerServiceProvider::JsonDeserializerServiceProvider(
    std::shared_ptr<JsonSerializer> serializer)
    : serializer(std::move(serializer)) {}

JsonDeserializerServiceProvider::~JsonDeserializerServiceProvider() = default;

void JsonDeserializerServiceProvider::start() {}

void JsonDeserializerServiceProvider::stop() {}

Future<std::unique_ptr<Message>> JsonDeserializerServiceProvider::handle(
    std::unique_ptr<OpaqueMessage>&& message, Address&& address,
    std::shared_ptr<Context>&& context) {
  const std::string contentType = message->contentType;
  auto requestBytes = std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
      std::move(message->payload));

  std::unique_ptr<Message> request;
  {
    Future<std::unique_ptr<Message>> parsed = serializer->deserialize(requestBytes);
    if (!parsed.valid()) {
      throw std::runtime_error(kInvalidFuture);
    }
    request = parsed.get();
  }

  // The typed request goes to the same address at which the opaque one arrived.
  Future<std::unique_ptr<Message>> answered =
      context->deliver(std::move(request), std::move(address));
  if (!answered.valid()) {
    throw std::runtime_error(kInvalidFuture);
  }
  std::unique_ptr<Message> answer = answered.get();

  std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>> answerJson =
      serializer->serialize(answer);
  common::DataBuffer bytes;
  {
    Future<common::DataBuffer> joined = reduceSerializedPublisherToDataBuffer(answerJson);
    if (!joined.valid()) {
      throw std::runtime_error(kInvalidFuture);
    }
    bytes = joined.get();
  }

  // The reply echoes whatever content type the client sent.
  return makeReadyFuture<std::unique_ptr<Message>>(
      std::make_unique<OpaqueMessage>(contentType, std::move(bytes)));
}

}  // namespace json
}  // namespace connector
