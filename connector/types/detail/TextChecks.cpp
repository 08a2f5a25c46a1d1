#include "connector/types/detail/TextChecks.hpp"

#include <cstdint>
#include <cstring>

namespace connector::json::detail {

bool validUtf8(std::string_view text) noexcept {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* const end = p + text.size();
  while (p != end) {
    // Eight ASCII bytes at a time while they last.
    if (end - p >= 8) {
      std::uint64_t block = 0;
      std::memcpy(&block, p, sizeof block);
      if ((block & 0x8080808080808080ULL) == 0) {
        p += 8;
        continue;
      }
    }
    const unsigned char lead = *p;
    if (lead < 0x80) {
      ++p;
      continue;
    }
    int length = 0;
    unsigned char low = 0x80;  // the range of the second byte
    unsigned char high = 0xbf;
    if (lead >= 0xc2 && lead <= 0xdf) {
      length = 2;
    } else if (lead >= 0xe0 && lead <= 0xef) {
      length = 3;
      if (lead == 0xe0) low = 0xa0;   // no overlong form
      if (lead == 0xed) high = 0x9f;  // no surrogate
    } else if (lead >= 0xf0 && lead <= 0xf4) {
      length = 4;
      if (lead == 0xf0) low = 0x90;   // no overlong form
      if (lead == 0xf4) high = 0x8f;  // nothing above U+10FFFF
    } else {
      return false;
    }
    if (end - p < length) return false;
    if (p[1] < low || p[1] > high) return false;
    for (int i = 2; i < length; ++i) {
      if ((p[i] & 0xc0) != 0x80) return false;
    }
    p += length;
  }
  return true;
}

std::size_t codePoints(std::string_view text) noexcept {
  std::size_t count = 0;
  for (const char c : text) {
    if ((static_cast<unsigned char>(c) & 0xc0) != 0x80) ++count;
  }
  return count;
}

}  // namespace connector::json::detail
