// detail::BearerTokens: the bearer tokens an HttpGateway accepts, read from a file with
// one token per line, and the check of a request's Authorization header against them.
// Private to connector/net.
//
//   BearerTokens tokens("/etc/gateway/tokens");        // throws when it cannot read it
//   BearerTokens::Verdict v = tokens.check(request[http::field::authorization], present);
//   tokens.reload();                                   // after the file was rewritten
//
// The file: one token per line; spaces, tabs and a carriage return around a token are
// ignored, as are empty lines and lines starting with '#'. A token is made of the
// characters a bearer token may hold (letters, digits, "-._~+/", then any '='). Only
// SHA-256 digests of the tokens are kept; a presented token is hashed and compared with
// every digest in constant time (CRYPTO_memcmp, no early exit), so neither the content
// nor the length of a token shows in the time a refusal takes.
//
// Thread-safety: check() from any number of threads while reload() runs; the digests
// are swapped as a whole under a lock held only to copy a pointer.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace connector::net::detail {

class BearerTokens {
 public:
  enum class Verdict { Accepted, Missing, Malformed, Invalid };

  // Texts of the 401 answers, by verdict.
  static constexpr const char* kMissingText = "Missing bearer token";
  static constexpr const char* kMalformedText = "The Authorization header must be 'Bearer <token>'";
  static constexpr const char* kInvalidText = "Invalid bearer token";

  // Reads `path`. Throws std::runtime_error "HttpGateway cannot read the tokens file
  // '<path>': <cause>", "HttpGateway: line <n> of the tokens file '<path>' is not a
  // bearer token" (the line is not quoted) or "HttpGateway: the tokens file '<path>'
  // holds no token".
  explicit BearerTokens(std::string path);

  // Reads the file again and puts its tokens in force; returns how many there are.
  // Throws as the constructor; the tokens in force stay when it throws.
  std::size_t reload();

  // The verdict on a request: `present` tells whether it had an Authorization header,
  // `authorization` is its value. Never throws (but std::bad_alloc).
  Verdict check(std::string_view authorization, bool present) const;

  // The text a refusal with `verdict` (not Accepted) answers.
  static const char* textOf(Verdict verdict) noexcept;

  // Tokens in force.
  std::size_t size() const;

  const std::string& path() const noexcept { return file; }

  // True when `token` is one a bearer Authorization header can carry.
  static bool isToken(std::string_view token) noexcept;

 private:
  using Digest = std::array<unsigned char, 32>;
  using Digests = std::vector<Digest>;

  static Digest digestOf(std::string_view token);
  std::shared_ptr<const Digests> read() const;

  const std::string file;
  mutable std::mutex mutex;
  std::shared_ptr<const Digests> digests;  // guarded by mutex
};

}  // namespace connector::net::detail
