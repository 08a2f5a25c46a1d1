// connector::json::publisherOf: a byte publisher over text already in hand, the input
// that the streamed JsonSerializer::deserialize takes.
//
//   std::ostringstream out;
//   serializer->serialize(message, out);
//   auto back = serializer->deserialize(json::publisherOf(out.str())).get();
//
// The publisher keeps its own copy of the bytes and serves any number of subscribers,
// each through its own subscription: once a subscriber signals demand (any non-zero
// request, usually inside onSubscribe), it receives the whole text as one DataBuffer
// (none for empty text), then onComplete, on the thread that signalled demand. A
// subscriber that requests inside onSubscribe has received everything before
// subscribe() returns, so the serializer reads the bytes from memory at once. cancel()
// before demand ends that subscription without an item or onComplete. completion()
// is a future already resolved with true: the bytes are all in hand from the start.
//
// Thread-safety: subscribe() may be called from any thread, also concurrently; each
// subscription's request() and cancel() may be called from any thread, and it delivers
// at most once. What a subscriber's callbacks throw passes to the caller of subscribe()
// or request() that made them run.
#pragma once

#include <memory>
#include <string>

#include "connector/Export.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Publisher.hpp"

namespace connector::json {

// A publisher of text's bytes. Its subscribe throws std::invalid_argument
// "Subscriber must not be null." for an empty subscriber.
CONNECTOR_API std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>> publisherOf(
    const std::string& text);

// A publisher of the buffer's bytes (size bytes from data); as above.
CONNECTOR_API std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>> publisherOf(
    common::DataBuffer bytes);

}  // namespace connector::json
