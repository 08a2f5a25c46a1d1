// Refusing the five integer literals that Poco's JSON parser reads as other numbers, and
// the stream that keeps the text the parser read so that it can be checked afterwards.
//
//   detail::RecordingStream recorded(reader->stream());
//   Poco::Dynamic::Var root = parser.parse(recorded.stream());
//   detail::refuseMisreadIntegers(recorded.text());   // Poco::SyntaxException
//
// Poco reads integer literals into Int64, or UInt64 above that range, and refuses the
// others ("Not a valid unsigned integer: <literal>"), except that 18446744073709551616 to
// 18446744073709551619 come out as 0 to 3 and -9223372036854775809 as
// -9223372036854775808. A peer sending one of them would otherwise be read as having
// sent another number.
//
// Thread-safety: a RecordingStream belongs to the one thread that reads it;
// refuseMisreadIntegers is a pure function.
#pragma once

#include <istream>
#include <streambuf>
#include <string>

#include "connector/Export.hpp"

namespace connector::json::detail {

// Throws Poco::SyntaxException "Not a valid unsigned integer: <literal>" when the JSON
// text (already accepted by the parser) holds one of the five literals as a number
// (not inside a string, not as part of a fraction or an exponent). Reads the text once,
// looking closer only at runs of 19 digits or more.
CONNECTOR_API void refuseMisreadIntegers(const std::string& text);

// An istream that reads from `source`'s buffer and keeps a copy of every byte it hands
// out. Reads block, end and fail exactly as reads of source do (its exception mask is
// copied); the source's chunks are passed on whole.
class CONNECTOR_API RecordingStream {
 public:
  explicit RecordingStream(std::istream& source);
  RecordingStream(const RecordingStream&) = delete;
  RecordingStream& operator=(const RecordingStream&) = delete;
  ~RecordingStream();

  std::istream& stream() noexcept { return input; }
  const std::string& text() const noexcept { return buffer.recorded; }

 private:
  class Buffer : public std::streambuf {
   public:
    explicit Buffer(std::streambuf* source) : source(source) {}
    std::string recorded;

   protected:
    int_type underflow() override;

   private:
    std::streambuf* source;
  };

  Buffer buffer;
  std::istream input;
};

}  // namespace connector::json::detail
