// The text of kept unknown members (json::UnknownMembers): a value as compact JSON text
// written as this library writes JSON, made from a value Poco's parser read (the
// converters) or straight from the direct reader (the direct codec), so that both give
// the same text; and a kept text read back as a value for writing.
//
//   std::string text = keptText(value);            // {"a":1,"b":[true,"x"]}
//   appendKeptValue(reader, text);                 // the same from the same bytes
//   Poco::Dynamic::Var back = keptValue(text);     // MemberError when text is not JSON
//
// Thread-safety: pure functions.
#pragma once

#include <string>

#include <Poco/Dynamic/Var.h>

#include "connector/Export.hpp"
#include "connector/serializer/detail/DirectReader.hpp"

namespace connector::json::detail {

// value as compact JSON text, as Poco's writer writes it.
CONNECTOR_API std::string keptText(const Poco::Dynamic::Var& value);

// Appends the reader's current value (consumed) as keptText would write what Poco's
// parser makes of the same bytes: object members sorted by name, numbers as the parser
// reads and the writer writes them. Throws DirectDecline where the two might differ (a
// member name given twice in an object).
CONNECTOR_API void appendKeptValue(DirectReader& in, std::string& out);

// The value of a kept text, as Poco's parser reads it. Throws MemberError ": the kept
// text is not JSON" for anything but one JSON value.
CONNECTOR_API Poco::Dynamic::Var keptValue(const std::string& text);

// Appends keptText(keptValue(text)). Throws MemberError as keptValue.
CONNECTOR_API void appendKeptText(std::string& out, const std::string& text);

// Throws MemberError " is declared and also kept as unknown".
[[noreturn]] CONNECTOR_API void throwDeclaredAndKept();

}  // namespace connector::json::detail
