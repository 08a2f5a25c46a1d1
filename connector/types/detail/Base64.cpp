#include "connector/types/detail/Base64.hpp"

#include <array>
#include <cstdint>

namespace connector::json::detail {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The value of each character of the alphabet, -1 for every other byte.
struct DecodeTable {
  std::array<int, 256> values{};
  DecodeTable() {
    values.fill(-1);
    for (int i = 0; i < 64; ++i) values[static_cast<unsigned char>(kAlphabet[i])] = i;
  }
};

const DecodeTable& decodeTable() {
  static const DecodeTable table;
  return table;
}

}  // namespace

void appendBase64(std::string& out, const std::vector<std::byte>& bytes) {
  out.reserve(out.size() + (bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const auto group = static_cast<std::uint32_t>(bytes[i]) << 16 |
                       static_cast<std::uint32_t>(bytes[i + 1]) << 8 |
                       static_cast<std::uint32_t>(bytes[i + 2]);
    out.push_back(kAlphabet[group >> 18]);
    out.push_back(kAlphabet[(group >> 12) & 63]);
    out.push_back(kAlphabet[(group >> 6) & 63]);
    out.push_back(kAlphabet[group & 63]);
  }
  const std::size_t rest = bytes.size() - i;
  if (rest == 0) return;
  std::uint32_t group = static_cast<std::uint32_t>(bytes[i]) << 16;
  if (rest == 2) group |= static_cast<std::uint32_t>(bytes[i + 1]) << 8;
  out.push_back(kAlphabet[group >> 18]);
  out.push_back(kAlphabet[(group >> 12) & 63]);
  out.push_back(rest == 2 ? kAlphabet[(group >> 6) & 63] : '=');
  out.push_back('=');
}

bool decodeBase64(std::string_view text, std::vector<std::byte>& bytes) {
  if (text.size() % 4 != 0) return false;
  const DecodeTable& table = decodeTable();
  bytes.clear();
  bytes.reserve(text.size() / 4 * 3);
  for (std::size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    int padding = 0;
    if (last && text[i + 3] == '=') padding = text[i + 2] == '=' ? 2 : 1;
    std::uint32_t group = 0;
    for (int j = 0; j < 4 - padding; ++j) {
      const int value =
          table.values[static_cast<unsigned char>(text[i + static_cast<std::size_t>(j)])];
      if (value < 0) return false;
      group |= static_cast<std::uint32_t>(value) << (18 - 6 * j);
    }
    bytes.push_back(static_cast<std::byte>(group >> 16));
    if (padding < 2) bytes.push_back(static_cast<std::byte>((group >> 8) & 255));
    if (padding < 1) bytes.push_back(static_cast<std::byte>(group & 255));
    // Bits beyond the last byte must be zero (one text per value).
    if ((padding == 1 && (group & 255) != 0) || (padding == 2 && (group & 0xffff) != 0)) {
      return false;
    }
  }
  return true;
}

const char* base64Pattern() {
  return "^(?:[A-Za-z0-9+/]{4})*(?:[A-Za-z0-9+/]{2}[AEIMQUYcgkosw048]=|[A-Za-z0-9+/][AQgw]==)?$";
}

}  // namespace connector::json::detail
