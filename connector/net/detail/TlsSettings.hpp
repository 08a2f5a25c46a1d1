// detail::kTls12Ciphers: the TLS 1.2 cipher suites the gateway and the link offer, in
// OpenSSL notation: forward-secret key exchange (ECDHE, DHE) with AEAD ciphers only
// (AES-GCM, ChaCha20-Poly1305). TLS 1.3 keeps OpenSSL's own suites, all of that kind.
// Private to connector/net.
//
// Thread-safety: a constant.
#pragma once

namespace connector::net::detail {

inline constexpr const char* kTls12Ciphers =
    "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-RSA-AES128-GCM-SHA256:ECDHE-ECDSA-AES256-GCM-SHA384:"
    "ECDHE-RSA-AES256-GCM-SHA384:ECDHE-ECDSA-CHACHA20-POLY1305:ECDHE-RSA-CHACHA20-POLY1305:"
    "DHE-RSA-AES128-GCM-SHA256:DHE-RSA-AES256-GCM-SHA384";

}  // namespace connector::net::detail
