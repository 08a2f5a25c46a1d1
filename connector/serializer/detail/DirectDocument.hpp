// connector::json::detail::DirectDocument: one JSON document parsed with simdjson's
// On-Demand parser for the direct codecs: the root object's "type" member, and a
// direct codec's reading of the root object.
//
//   DirectDocument document(bytes, size, capacity);   // capacity >= size + kPadding
//   std::string name;
//   if (document.typeName(name)) {
//     std::unique_ptr<Message> message = document.read(*codec);   // nullptr: declined
//   }
//
// The document succeeds only where Poco's parser would read the same bytes to the same
// values: read() returns nullptr when the codec declines, when the bytes are not one
// JSON object with nothing but whitespace after it, or when anything in them (a
// skipped member included) is something Poco's parser refuses or might read otherwise.
//
// The parser is kept per thread (up to documents of kReusedCapacity bytes, so that a
// thread keeps at most a few MiB); a document opened while another is open on the
// same thread gets a parser of its own.
//
// Thread-safety: one document per thread at a time; the object is not shared.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "connector/Export.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Message.hpp"
#include "connector/serializer/DirectCodec.hpp"

namespace connector::json::detail {

class CONNECTOR_API DirectDocument {
 public:
  // Readable bytes the parser needs after the document (simdjson's padding).
  static constexpr std::size_t kPadding = 64;
  // Documents up to this size reuse the thread's parser; larger ones get their own.
  static constexpr std::size_t kReusedCapacity = std::size_t{1} << 20;

  // The document data[0, size); data must be readable up to data + capacity, and
  // capacity >= size + kPadding. Parsing errors surface as declines of the calls below.
  DirectDocument(const char* data, std::size_t size, std::size_t capacity);
  // The document that the buffers hold one after the other: read in place when there is
  // one buffer with kPadding bytes of room after its bytes, else from a padded copy.
  explicit DirectDocument(const std::vector<common::DataBuffer>& pieces);
  ~DirectDocument();
  DirectDocument(const DirectDocument&) = delete;
  DirectDocument& operator=(const DirectDocument&) = delete;

  // Sets name to the root object's member "type" and returns true when the root is an
  // object holding that member exactly once, as a string; false otherwise.
  bool typeName(std::string& name);

  // Runs codec over the root object, from its first member; the message, or nullptr
  // when the codec declined or the document is not what the converter path would read
  // to that message.
  std::unique_ptr<connector::Message> read(const DirectCodec& codec);

 private:
  struct State;
  // Takes the thread's state when it is free and the document small enough.
  void acquire(std::size_t size);
  void parse(const char* data, std::size_t size, std::size_t capacity);

  State* state = nullptr;
  bool ownState = false;
};

}  // namespace connector::json::detail
