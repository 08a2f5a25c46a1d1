// connector::reactive_streams::makePublisherFromStream: publish what a writer writes.
//
//   auto bytes = makePublisherFromStream([object](std::ostream& out) {
//     object->stringify(out, 0, -1);
//   });
//   bytes->subscribe(subscriber);   // the writer runs once demand is signalled
//
// The writer runs at most once, on the thread that first signals demand (inside
// onSubscribe when the subscriber requests there), never at creation. Its bytes are
// published in order as DataBuffer items of at most 64 KiB, then onComplete. Demand
// from request(n) is honoured: chunks beyond it wait in order until more is requested,
// possibly from another thread. cancel() stops delivery (the writer's further output
// is discarded). An exception from the writer becomes onError after the bytes written
// before it. A subscriber whose onNext throws receives nothing more: delivery stops as
// on cancel and the exception goes on to the caller that signalled demand (or, when
// the writer's own thread delivered, ends the writer's output). completion() resolves
// true once everything was delivered, false on cancel, and fails with the writer's
// error, or with the exception from onNext.
//
// Thread-safety: request and cancel may be called from any thread; items are delivered
// one at a time, in order, never concurrently.
#pragma once

#include <functional>
#include <memory>
#include <ostream>

#include "connector/Export.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Publisher.hpp"

namespace connector::reactive_streams {

// Largest item the publisher emits.
inline constexpr std::size_t kStreamChunkSize = std::size_t{64} * 1024;

// The publisher of what `writer` writes. Its subscribe throws std::invalid_argument
// "Subscriber must not be null." for an empty subscriber and "Only one subscription
// allowed." once it has one.
CONNECTOR_API std::shared_ptr<PublisherAPI<common::DataBuffer>> makePublisherFromStream(
    std::function<void(std::ostream&)>&& writer);

}  // namespace connector::reactive_streams
