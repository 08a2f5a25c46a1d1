// Explicit instantiations of the stream adapters for byte buffers, the one type the
// module uses them with; their headers declare them extern.
#define CONNECTOR_STREAMS_INSTANTIATIONS
#include "connector/host/DataBuffer.hpp"
#include "connector/streams/OneShotPublisher.hpp"
#include "connector/streams/ReducingSubscriber.hpp"

namespace connector::reactive_streams {
template class OneShotPublisher<common::DataBuffer>;
template class ReducingSubscriber<common::DataBuffer, common::DataBuffer>;
}  // namespace connector::reactive_streams
