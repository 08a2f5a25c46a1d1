// connector::json::detail::MemberError: the failure of one member while a declared type
// is read or written, on its way out to the operation that names the whole path.
//
//   try { codec.read(value, member); } catch (MemberError& e) { e.within("items"); throw; }
//   ...
//   catch (const MemberError& e) { throw Poco::DataFormatException(e.message()); }
//
// The innermost failure knows only what went wrong; each level it passes on its way out
// adds its own member name or array index, so the happy path pays nothing for paths.
// message() joins them as an RFC 6901 JSON Pointer ("~" as "~0", "/" as "~1").
//
// Thread-safety: a plain value, owned by the thread that threw it.
#pragma once

#include <cstddef>
#include <exception>
#include <string>
#include <vector>

#include "connector/Export.hpp"

namespace connector::json::detail {

class CONNECTOR_API MemberError : public std::exception {
 public:
  // tail follows the quoted path: " is missing", ": expected a string, got null", ...
  explicit MemberError(std::string tail);

  // Adds the enclosing member name (or array index) in front of the path so far.
  void within(const std::string& segment);
  void within(std::size_t index);

  // member "<path>"<tail>, e.g. member "/items/1/quantity": expected an integer, got a string
  std::string message() const;

  // The tail alone; message() is what callers show.
  const char* what() const noexcept override;

 private:
  std::vector<std::string> segments;  // innermost first
  std::string tail;
};

}  // namespace connector::json::detail
