// The three result types of the JSON module's promises and futures, instantiated once
// in libconnector_json and declared here so that users link to those instantiations.
//
// Thread-safety: see Future.hpp and Promise.hpp.
#pragma once

#include <memory>

#include "connector/futures/Future.hpp"
#include "connector/futures/Promise.hpp"
#include "connector/futures/SharedFutureState.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Message.hpp"

#ifndef CONNECTOR_FUTURE_INSTANTIATIONS
namespace connector {
extern template class detail::SharedFutureState<std::unique_ptr<Message>>;
extern template class detail::SharedFutureState<bool>;
extern template class detail::SharedFutureState<common::DataBuffer>;
extern template class Promise<std::unique_ptr<Message>>;
extern template class Promise<bool>;
extern template class Promise<common::DataBuffer>;
extern template class Future<std::unique_ptr<Message>>;
extern template class Future<bool>;
extern template class Future<common::DataBuffer>;
}  // namespace connector
#endif
