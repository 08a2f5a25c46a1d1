#include "connector/streams/ReduceToDataBuffer.hpp"

#include <utility>

#include "connector/streams/ReducingSubscriber.hpp"

namespace connector::json {

using common::DataBuffer;

Future<DataBuffer> reduceSerializedPublisherToDataBuffer(
    std::shared_ptr<reactive_streams::PublisherAPI<DataBuffer>> publisher) {
  // No captures: the std::function holding it never allocates.
  auto joinChunks = [](DataBuffer&& item, DataBuffer&& accumulator) -> DataBuffer {
    accumulator.append(item);
    return std::move(accumulator);
  };
  return reactive_streams::reduce<DataBuffer, DataBuffer>(std::move(publisher), joinChunks,
                                                          DataBuffer());
}

}  // namespace connector::json
