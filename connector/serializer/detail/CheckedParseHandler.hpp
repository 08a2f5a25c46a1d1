// connector::json::detail::CheckedParseHandler: Poco's JSON parse handler (members in
// sorted order), except that it refuses the integers Poco's number parser wraps around.
//
//   Poco::SharedPtr<Poco::JSON::ParseHandler> handler(new detail::CheckedParseHandler);
//   Poco::JSON::Parser parser(handler);
//   parser.parse(in);  // Poco::SyntaxException "Not a valid unsigned integer:
//   18446744073709551616"
//
// Poco reads an integer literal into Int64 when it can and into UInt64 otherwise, and
// refuses literals beyond both ("Not a valid unsigned integer: <literal>"), except that
// 18446744073709551616 to 18446744073709551619 wrap around to the UInt64 values 0 to 3.
// Any literal up to 2^63 - 1 arrives as Int64, so a UInt64 value in that range can only be
// such a wrapped literal: it is refused with Poco's text for its neighbours.
// (-9223372036854775809 is still read as -9223372036854775808: the handler sees the same
// value for both literals.)
//
// Thread-safety: one handler per parse, as Poco's own.
#pragma once

#include <Poco/JSON/ParseHandler.h>

#include "connector/Export.hpp"

namespace connector::json::detail {

class CONNECTOR_API CheckedParseHandler : public Poco::JSON::ParseHandler {
 public:
  CheckedParseHandler() : Poco::JSON::ParseHandler(false) {}

  // Throws Poco::SyntaxException "Not a valid unsigned integer: <2^64 + value>" for a
  // value up to 2^63 - 1; passes the others on.
  void value(Poco::UInt64 value) override;
  using Poco::JSON::ParseHandler::value;
};

}  // namespace connector::json::detail
