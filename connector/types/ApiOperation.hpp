// connector::json::ApiOperation: one operation of a json::Api as plain values: the
// address it is served at, its summary, and the type names and JSON Schemas (as JSON
// text) of its request and answer, with an example request. What a transport needs to
// describe the operation without knowing the C++ types behind it.
//
//   for (const json::ApiOperation& operation : api.operations()) {
//     std::cout << operation.address << ": " << operation.requestType << " -> "
//               << operation.answerType << '\n';
//   }
//
// Thread-safety: a plain value.
#pragma once

#include <string>

namespace connector::json {

struct ApiOperation {
  std::string address;        // e.g. "shop/ReserveItem"
  std::string summary;        // one line, as given to Api::operation
  std::string requestType;    // the request's type name, e.g. "shop/ReserveItem"
  std::string requestSchema;  // its JSON Schema (draft 2020-12), as compact JSON text
  std::string answerType;     // the answer's type name, e.g. "shop/Reservation"
  std::string answerSchema;   // its JSON Schema, as compact JSON text
  // A request the reader accepts, as compact JSON text with "type" first: a
  // default-constructed request as the serializer writes it. Empty when the default
  // request cannot be written or is not read back (a declared bound it does not meet).
  std::string example;
};

}  // namespace connector::json
