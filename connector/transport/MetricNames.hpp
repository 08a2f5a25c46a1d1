// connector::transport::metric: the names of the metrics the transports expose on the
// gateway's GET /metrics, and the label values they use. One list, so that the HTTP
// gateway and the NATS listener in one process count into the same families.
//
//   registry.counter(metric::kGatewayRequests, metric::kGatewayRequestsHelp,
//                    {{metric::kStatusLabel, "200"}}).increment();
//
// Thread-safety: constants.
#pragma once

namespace connector::transport::metric {

// Counter, label "status" (the HTTP status code): requests answered.
inline constexpr const char* kGatewayRequests = "connector_gateway_requests_total";
inline constexpr const char* kGatewayRequestsHelp = "Requests answered, by HTTP status";
// Histogram: seconds from a request's complete header to its answer.
inline constexpr const char* kGatewayRequestDuration = "connector_gateway_request_duration_seconds";
inline constexpr const char* kGatewayRequestDurationHelp =
    "Seconds from a request's header to its answer";
// Gauge: connections open.
inline constexpr const char* kGatewayConnectionsOpen = "connector_gateway_connections_open";
inline constexpr const char* kGatewayConnectionsOpenHelp = "Connections open";
// Gauge: requests read (their header at least) and not yet answered.
inline constexpr const char* kGatewayRequestsInFlight = "connector_gateway_requests_in_flight";
inline constexpr const char* kGatewayRequestsInFlightHelp = "Requests read and not yet answered";
// Counter, label "reason" (below): connections or requests refused or cut at a limit, or
// refused for what they are (a wrong token, a content type that is not JSON).
inline constexpr const char* kGatewayRejected = "connector_gateway_rejected_total";
inline constexpr const char* kGatewayRejectedHelp = "Connections and requests refused at a limit";

// Counter, label "status": requests the NATS listener answered.
inline constexpr const char* kNatsRequests = "connector_nats_requests_total";
inline constexpr const char* kNatsRequestsHelp = "NATS requests answered, by status";
// Counter: requests the NATS listener skipped because their requester's time
// (Connector-Timeout-Ms) had run out before a worker took them; they got no answer.
inline constexpr const char* kNatsExpired = "connector_nats_expired_total";
inline constexpr const char* kNatsExpiredHelp =
    "NATS requests skipped unanswered: their requester had stopped waiting";

inline constexpr const char* kStatusLabel = "status";
inline constexpr const char* kReasonLabel = "reason";

// Values of the "reason" label.
namespace reason {
inline constexpr const char* kConnections = "connections";           // over maxConnections
inline constexpr const char* kHeaderSize = "header_size";            // header over its limit
inline constexpr const char* kBodySize = "body_size";                // body over maxBodyBytes
inline constexpr const char* kBusy = "busy";                         // in-flight budget full
inline constexpr const char* kHeaderTimeout = "header_timeout";      // header not in time
inline constexpr const char* kBodyTimeout = "body_timeout";          // body stalled
inline constexpr const char* kDeliveryTimeout = "delivery_timeout";  // answered 504
inline constexpr const char* kTls = "tls";    // TLS handshake failed (plain HTTP, garbage, alert)
inline constexpr const char* kAuth = "auth";  // no or a wrong bearer token: answered 401
// A POST whose Content-Type is not JSON: answered 415, nothing delivered.
inline constexpr const char* kContentType = "content_type";
}  // namespace reason

}  // namespace connector::transport::metric
