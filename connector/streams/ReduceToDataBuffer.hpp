// connector::json::reduceSerializedPublisherToDataBuffer: gathers a stream of byte
// chunks into one contiguous DataBuffer.
//
//   std::shared_ptr<PublisherAPI<DataBuffer>> bytes = serializer->serialize(message);
//   Future<DataBuffer> joined = json::reduceSerializedPublisherToDataBuffer(bytes);
//   DataBuffer payload = joined.get();   // every chunk, in stream order
//
// The chunks are appended, never copied one by one into intermediate buffers; the
// result grows geometrically (at least doubling), so n bytes cost amortised linear
// time. Each chunk is only read: a one-shot publisher keeps its own bytes.
//
// Thread-safety: each call makes its own reducing subscriber; chunks may arrive on any
// thread (see ReducingSubscriber.hpp). The returned future follows Future's rules.
#pragma once

#include <memory>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Publisher.hpp"

namespace connector::json {

// Subscribes a reducing subscriber that appends every chunk to an initially empty
// buffer, and returns its result future: ready at once for a synchronous publisher
// such as OneShotPublisher; for a null publisher resolved with an empty buffer. A
// chunk that cannot be appended (std::runtime_error "Out of memory!") cancels the
// stream; the future then holds the bytes gathered before it. Throws what the
// publisher's subscribe() throws (std::invalid_argument "Only one subscription
// allowed." for a publisher that already has its subscriber).
CONNECTOR_API Future<common::DataBuffer> reduceSerializedPublisherToDataBuffer(
    std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>> publisher);

}  // namespace connector::json
