// connector::nats header names: what a NatsLink and a NatsListener put in the headers of
// the NATS messages they exchange, so that any NATS client can call a listener (or answer
// a link) without this library.
//
//   request:  subject "connector.shop.ReserveItem", reply subject set,
//             header "Content-Type: application/json", body the JSON request
//   answer:   header "Content-Type: application/json", body the JSON answer
//   request:  header "Connector-Timeout-Ms: 29998": how long its requester still waits
//   failure:  headers "Connector-Status: 404", "Nats-Service-Error-Code: 404",
//             "Nats-Service-Error: No service bound at address 'shop/ReserveItem'" and
//             "Content-Type: application/json",
//             body {"error":"No service bound at address 'shop/ReserveItem'"}
//
// A request without a Content-Type header counts as "application/json". The status of a
// failure is the HTTP gateway's for the same failure (connector/transport/FailureAnswer).
// Nats-Service-Error-Code and Nats-Service-Error are the NATS services protocol's error
// headers, which NATS clients of other languages read (nats.js: ServiceError); a
// NatsLink reads them as well as Connector-Status, so that any service that answers
// errors the protocol's way can answer a link. Connector-Timeout-Ms, in milliseconds
// from the moment the listener receives the request, lets a listener skip a request
// nobody waits for any more (NatsListener); a request without it is never skipped.
//
// Thread-safety: constants.
#pragma once

namespace connector::nats {

inline constexpr const char* kContentTypeHeader = "Content-Type";
inline constexpr const char* kStatusHeader = "Connector-Status";
inline constexpr const char* kServiceErrorHeader = "Nats-Service-Error";
inline constexpr const char* kServiceErrorCodeHeader = "Nats-Service-Error-Code";
inline constexpr const char* kTimeoutHeader = "Connector-Timeout-Ms";
inline constexpr const char* kDefaultContentType = "application/json";

}  // namespace connector::nats
