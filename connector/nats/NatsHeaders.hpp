// connector::nats header names: what a NatsLink and a NatsListener put in the headers of
// the NATS messages they exchange, so that any NATS client can call a listener (or answer
// a link) without this library.
//
//   request:  subject "connector.shop.ReserveItem", reply subject set,
//             header "Content-Type: application/json", body the JSON request
//   answer:   header "Content-Type: application/json", body the JSON answer
//   failure:  headers "Connector-Status: 404" and "Content-Type: application/json",
//             body {"error":"No service bound at address 'shop/ReserveItem'"}
//
// A request without a Content-Type header counts as "application/json". The status of a
// failure is the HTTP gateway's for the same failure (connector/transport/FailureAnswer).
//
// Thread-safety: constants.
#pragma once

namespace connector::nats {

inline constexpr const char* kContentTypeHeader = "Content-Type";
inline constexpr const char* kStatusHeader = "Connector-Status";
inline constexpr const char* kDefaultContentType = "application/json";

}  // namespace connector::nats
