// connector::common::DataBuffer: an owned, growable, contiguous block of bytes.
//
//   DataBuffer joined;                    // empty: data null, capacity 0, size 0
//   joined.append(DataBuffer("{\"a\":"));  // grows geometrically (at least doubling)
//   joined.append(DataBuffer("1}"));
//   std::string_view text = joined.view(); // {"a":1}
//
// Bytes live in malloc'ed storage. A move takes all three fields and leaves the source
// empty; a copy allocates exactly `size` bytes (nothing for an empty buffer). Allocation
// failure throws std::runtime_error "Out of memory!" and leaves the buffer unchanged.
//
// Thread-safety: a value type without internal locking; buffers are moved between
// threads, never shared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "connector/Export.hpp"

namespace connector::common {

class CONNECTOR_API DataBuffer {
 public:
  DataBuffer() noexcept = default;
  // Copies n bytes from `bytes`.
  DataBuffer(const void* bytes, std::size_t n);
  // Copies the text's bytes.
  explicit DataBuffer(std::string_view text);

  DataBuffer(const DataBuffer& other);
  DataBuffer& operator=(const DataBuffer& other);
  DataBuffer(DataBuffer&& other) noexcept;
  DataBuffer& operator=(DataBuffer&& other) noexcept;
  ~DataBuffer();

  // Appends item's bytes after this buffer's. Appending the buffer to itself or an
  // empty item changes nothing. Grows to max(2 * capacity, size + item.size).
  // Throws std::runtime_error "Out of memory!" (buffer unchanged) when growth fails.
  void append(const DataBuffer& item);

  // Makes room for at least n bytes in all (the bytes in use stay); grows to exactly n
  // when it must, and allocates nothing for n == 0. Throws std::runtime_error
  // "Out of memory!" (buffer unchanged).
  void reserve(std::size_t n);

  std::string_view view() const noexcept { return {reinterpret_cast<const char*>(data), size}; }

  std::uint8_t* data = nullptr;  // malloc'ed bytes, or null
  std::size_t capacity = 0;      // bytes allocated
  std::size_t size = 0;          // bytes in use
};

}  // namespace connector::common
