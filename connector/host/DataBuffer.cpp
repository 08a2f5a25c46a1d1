#include "connector/host/DataBuffer.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace connector::common {
namespace {

constexpr const char* kOutOfMemory = "Out of memory!";

std::uint8_t* allocateCopy(const void* bytes, std::size_t n) {
  if (n == 0) {
    return nullptr;
  }
  auto* copy = static_cast<std::uint8_t*>(std::malloc(n));
  if (copy == nullptr) {
    throw std::runtime_error(kOutOfMemory);
  }
  std::memcpy(copy, bytes, n);
  return copy;
}

}  // namespace

DataBuffer::DataBuffer(const void* bytes, std::size_t n)
    : data(allocateCopy(bytes, n)), capacity(n), size(n) {}

DataBuffer::DataBuffer(std::string_view text) : DataBuffer(text.data(), text.size()) {}

DataBuffer::DataBuffer(const DataBuffer& other) : DataBuffer(other.data, other.size) {}

DataBuffer& DataBuffer::operator=(const DataBuffer& other) {
  if (this != &other) {
    DataBuffer copy(other);
    *this = std::move(copy);
  }
  return *this;
}

DataBuffer::DataBuffer(DataBuffer&& other) noexcept
    : data(std::exchange(other.data, nullptr)),
      capacity(std::exchange(other.capacity, 0)),
      size(std::exchange(other.size, 0)) {}

DataBuffer& DataBuffer::operator=(DataBuffer&& other) noexcept {
  if (this != &other) {
    std::free(data);
    data = std::exchange(other.data, nullptr);
    capacity = std::exchange(other.capacity, 0);
    size = std::exchange(other.size, 0);
  }
  return *this;
}

DataBuffer::~DataBuffer() { std::free(data); }

void DataBuffer::reserve(std::size_t n) {
  if (n == 0 || (n <= capacity && data != nullptr)) {
    return;
  }
  void* grown = data != nullptr ? std::realloc(data, n) : std::malloc(n);
  if (grown == nullptr) {
    throw std::runtime_error(kOutOfMemory);
  }
  data = static_cast<std::uint8_t*>(grown);
  capacity = n;
}

void DataBuffer::append(const DataBuffer& item) {
  if (&item == this || item.size == 0) {
    return;
  }
  const std::size_t needed = size + item.size;
  if (needed > capacity || data == nullptr) {
    reserve(std::max(2 * capacity, needed));
  }
  std::memcpy(data + size, item.data, item.size);
  size = needed;
}

}  // namespace connector::common
