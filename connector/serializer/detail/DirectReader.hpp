// connector::json::detail::DirectReader: a forward-only pull reader over one JSON
// document, as the direct codecs see it. The serializer runs it over the bytes of a
// stream (with simdjson's On-Demand parser, which this header does not expose); a codec
// walks the values it expects and the reader hands each one over once.
//
//   in.enterObject();                         // the current value must be an object
//   std::string_view key;
//   while (in.nextMember(key)) {              // the member's value is now current
//     if (key == "sku") item.sku = in.readString();
//     else in.skipValue();                    // checked, then passed over
//   }
//
// Every call either does what it says or throws DirectDecline: the value is of another
// kind, the bytes are not JSON, or the converter path's parser might read them otherwise
// (a number it parses differently, nesting past its depth limit of 128). The serializer
// catches DirectDecline and hands the same bytes to the converter path, which decides;
// so a reader never decides an error on its own, it only declines.
//
// Every value must be consumed (read, entered and walked to its end, or skipped) before
// the next one is asked for: the reader passes over nothing unchecked.
//
// Thread-safety: one reader per document, used by one thread.
#pragma once

#include <cstdint>
#include <exception>
#include <string_view>

#include "connector/Export.hpp"

namespace connector::json::detail {

// The reader's (or a codec's) "not this way": the converter path must decide.
class CONNECTOR_API DirectDecline : public std::exception {
 public:
  const char* what() const noexcept override;
};

// Throws DirectDecline.
[[noreturn]] CONNECTOR_API void decline();

// The kind of a JSON value as the converter path's parser reads it: Integer for a
// literal without fraction or exponent, Number for any other number.
enum class DirectKind { Null, Boolean, Integer, Number, String, Array, Object };

// An integer as the converter path's parser reads it: negative ones in `negative`,
// the others in `nonNegative`.
struct DirectInteger {
  bool isNegative = false;
  std::int64_t negative = 0;
  std::uint64_t nonNegative = 0;
};

class CONNECTOR_API DirectReader {
 public:
  DirectReader() = default;
  DirectReader(const DirectReader&) = delete;
  DirectReader& operator=(const DirectReader&) = delete;
  virtual ~DirectReader();

  // Enters the current value, which must be an object; nextMember then walks it.
  virtual void enterObject() = 0;
  // Moves to the next member of the innermost object entered and makes its value
  // current; key is the member's name, unescaped, valid until the next call. Returns
  // false after the last member: the object is then left.
  virtual bool nextMember(std::string_view& key) = 0;

  // Enters the current value, which must be an array; nextItem then walks it.
  virtual void enterArray() = 0;
  // Makes the next item of the innermost array entered current; false after the last
  // one (the array is then left).
  virtual bool nextItem() = 0;

  // The kind of the current value, which stays current (nothing is consumed).
  virtual DirectKind peek() = 0;

  // True, with the value consumed, when the current value is null; false (nothing
  // consumed) for any other kind.
  virtual bool takeNull() = 0;
  virtual bool readBool() = 0;
  // The current value, which must be an integer literal (no fraction, no exponent)
  // that the parser reads as a 64-bit integer.
  virtual DirectInteger readInteger() = 0;
  // The current value, which must be a number, as the parser reads it: an integer
  // literal through its 64-bit value, any other as the nearest finite double.
  virtual double readNumber() = 0;
  // The current value, which must be a string, unescaped; valid until the next call.
  virtual std::string_view readString() = 0;
  // Checks the current value (of any kind, nested to any depth) as the parser would,
  // and passes over it.
  virtual void skipValue() = 0;
};

}  // namespace connector::json::detail
