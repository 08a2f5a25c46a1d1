#include "connector/net/detail/BearerTokens.hpp"

#include <fstream>
#include <stdexcept>
#include <utility>

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include "connector/net/detail/ReadableFile.hpp"

namespace connector::net::detail {

namespace {

constexpr std::string_view kBlank = " \t\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlank);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

bool isTokenCharacter(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~' || c == '+' || c == '/';
}

// Case-insensitive comparison with a lower-case ASCII word.
bool equalsWord(std::string_view text, std::string_view lowerWord) noexcept {
  if (text.size() != lowerWord.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c =
        text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] - 'A' + 'a') : text[i];
    if (c != lowerWord[i]) return false;
  }
  return true;
}

}  // namespace

BearerTokens::BearerTokens(std::string path) : file(std::move(path)), digests(read()) {}

bool BearerTokens::isToken(std::string_view token) noexcept {
  std::size_t i = 0;
  while (i < token.size() && isTokenCharacter(token[i])) ++i;
  if (i == 0) return false;
  while (i < token.size() && token[i] == '=') ++i;
  return i == token.size();
}

BearerTokens::Digest BearerTokens::digestOf(std::string_view token) {
  Digest digest{};
  unsigned int length = 0;
  if (EVP_Digest(token.data(), token.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1 ||
      length != digest.size()) {
    throw std::runtime_error("HttpGateway cannot hash a bearer token (SHA-256 unavailable)");
  }
  return digest;
}

std::shared_ptr<const BearerTokens::Digests> BearerTokens::read() const {
  requireReadableFile("HttpGateway", "tokens file", file);
  std::ifstream in(file);
  auto loaded = std::make_shared<Digests>();
  std::string line;
  std::size_t number = 0;
  while (std::getline(in, line)) {
    ++number;
    const std::string_view token = trimmed(line);
    if (token.empty() || token[0] == '#') continue;
    if (!isToken(token)) {
      throw std::runtime_error("HttpGateway: line " + std::to_string(number) +
                               " of the tokens file '" + file + "' is not a bearer token");
    }
    loaded->push_back(digestOf(token));
  }
  if (in.bad()) {
    throw std::runtime_error("HttpGateway cannot read the tokens file '" + file + "': read error");
  }
  if (loaded->empty()) {
    throw std::runtime_error("HttpGateway: the tokens file '" + file + "' holds no token");
  }
  return loaded;
}

std::size_t BearerTokens::reload() {
  std::shared_ptr<const Digests> fresh = read();
  const std::size_t count = fresh->size();
  std::lock_guard<std::mutex> lock(mutex);
  digests = std::move(fresh);
  return count;
}

std::size_t BearerTokens::size() const {
  std::lock_guard<std::mutex> lock(mutex);
  return digests->size();
}

BearerTokens::Verdict BearerTokens::check(std::string_view authorization, bool present) const {
  if (!present) return Verdict::Missing;
  const std::string_view value = trimmed(authorization);
  const std::size_t space = value.find(' ');
  if (space == std::string_view::npos || !equalsWord(value.substr(0, space), "bearer")) {
    return Verdict::Malformed;
  }
  const std::string_view token = trimmed(value.substr(space + 1));
  if (!isToken(token)) return Verdict::Malformed;

  const Digest presented = digestOf(token);
  std::shared_ptr<const Digests> accepted;
  {
    std::lock_guard<std::mutex> lock(mutex);
    accepted = digests;
  }
  // Every digest is compared, whatever matched before.
  int matches = 0;
  for (const Digest& digest : *accepted) {
    matches |= CRYPTO_memcmp(digest.data(), presented.data(), digest.size()) == 0 ? 1 : 0;
  }
  return matches != 0 ? Verdict::Accepted : Verdict::Invalid;
}

const char* BearerTokens::textOf(Verdict verdict) noexcept {
  switch (verdict) {
    case Verdict::Missing:
      return kMissingText;
    case Verdict::Malformed:
      return kMalformedText;
    default:
      return kInvalidText;
  }
}

}  // namespace connector::net::detail
