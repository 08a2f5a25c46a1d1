// How the streamed fuzz targets read their input: a small header that chooses where the
// document is cut into chunks and how it is published, then the document itself.
//
//   byte 0           bits 0-3: number of cuts c (0-15); bit 6: target-specific choice;
//                    bit 7: publish through makePublisherFromStream instead of the chunks
//   bytes 1..c       the length of each chunk before the last (0 gives an empty chunk)
//   the rest         the document; what is left after the cuts is the last chunk
//
//   const ChunkedInput input = ChunkedInput::read(data, size);
//   auto bytes = input.publisher();
//
// scripts/fuzz writes such a header in front of every seed document.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <connector/json.hpp>

#include "support/ChunkedPublisher.hpp"

namespace connector::fuzzing {

struct ChunkedInput {
  std::vector<std::string> chunks;  // the document, cut
  std::string document;             // the document, whole
  bool fromStream = false;          // publish through makePublisherFromStream
  bool choice = false;              // bit 6 of the header

  static ChunkedInput read(const std::uint8_t* data, std::size_t size) {
    ChunkedInput input;
    if (size == 0) {
      input.chunks.emplace_back();
      return input;
    }
    const std::uint8_t header = data[0];
    input.fromStream = (header & 0x80U) != 0;
    input.choice = (header & 0x40U) != 0;
    const std::size_t cuts = std::min<std::size_t>(header & 0x0FU, size - 1);
    const auto* lengths = data + 1;
    const auto* text = reinterpret_cast<const char*>(data + 1 + cuts);
    std::size_t left = size - 1 - cuts;
    input.document.assign(text, left);
    for (std::size_t i = 0; i < cuts; ++i) {
      const std::size_t length = std::min<std::size_t>(lengths[i], left);
      input.chunks.emplace_back(text, length);
      text += length;
      left -= length;
    }
    input.chunks.emplace_back(text, left);
    return input;
  }

  // A fresh publisher of the document, cut as the header says.
  std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>> publisher() const {
    if (fromStream) {
      std::vector<std::string> pieces = chunks;
      return reactive_streams::makePublisherFromStream([pieces](std::ostream& out) {
        for (const auto& piece : pieces) {
          out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
        }
      });
    }
    return std::make_shared<ChunkedPublisher>(chunks);
  }
};

}  // namespace connector::fuzzing
