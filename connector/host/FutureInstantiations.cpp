// Explicit instantiations of the module's promise and future types.
#define CONNECTOR_FUTURE_INSTANTIATIONS
#include "connector/host/FutureInstantiations.hpp"

namespace connector {
template class detail::SharedFutureState<std::unique_ptr<Message>>;
template class detail::SharedFutureState<bool>;
template class detail::SharedFutureState<common::DataBuffer>;
template class Promise<std::unique_ptr<Message>>;
template class Promise<bool>;
template class Promise<common::DataBuffer>;
template class Future<std::unique_ptr<Message>>;
template class Future<bool>;
template class Future<common::DataBuffer>;
}  // namespace connector
