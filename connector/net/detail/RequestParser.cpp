#include "connector/net/detail/RequestParser.hpp"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <boost/beast/core/string.hpp>
#include <boost/beast/http/error.hpp>

namespace connector::net::detail {

namespace http = boost::beast::http;

void RequestHead::clear() noexcept {
  method = http::verb::unknown;
  methodText.clear();
  target.clear();
  version = 11;
  contentType.clear();
  authorization.clear();
  authorizationFields = 0;
  expectContinue = false;
}

RequestParser::RequestParser(RequestHead& head, common::DataBuffer& body) noexcept
    : head(head), body(body) {
  head.clear();
  body.size = 0;
}

void RequestParser::on_request_impl(http::verb method, string_view methodText, string_view target,
                                    int version, error_code& /*error*/) {
  head.method = method;
  head.methodText.assign(methodText.data(), methodText.size());
  head.target.assign(target.data(), target.size());
  head.version = static_cast<unsigned>(version);
}

void RequestParser::on_response_impl(int /*status*/, string_view /*reason*/, int /*version*/,
                                     error_code& error) {
  error = http::error::bad_method;  // never called on a request parser
}

void RequestParser::on_field_impl(http::field name, string_view /*nameText*/, string_view value,
                                  error_code& /*error*/) {
  switch (name) {
    case http::field::content_type:
      head.contentType.assign(value.data(), value.size());
      break;
    case http::field::authorization:
      head.authorization.assign(value.data(), value.size());
      ++head.authorizationFields;
      break;
    case http::field::expect:
      head.expectContinue = boost::beast::iequals(value, "100-continue");
      break;
    default:
      break;
  }
}

void RequestParser::on_header_impl(error_code& /*error*/) {}

void RequestParser::on_body_init_impl(const boost::optional<std::uint64_t>& length,
                                      error_code& error) {
  if (!length) return;
  try {
    body.reserve(static_cast<std::size_t>(*length) + kPadding);
  } catch (const std::runtime_error&) {
    error = http::error::buffer_overflow;
  }
}

bool RequestParser::append(string_view bytes) {
  const std::size_t needed = body.size + bytes.size() + kPadding;
  if (needed > body.capacity) {
    try {
      body.reserve(std::max(body.capacity * 2, needed));
    } catch (const std::runtime_error&) {
      return false;
    }
  }
  std::memcpy(body.data + body.size, bytes.data(), bytes.size());
  body.size += bytes.size();
  return true;
}

std::size_t RequestParser::on_body_impl(string_view bytes, error_code& error) {
  if (!append(bytes)) {
    error = http::error::buffer_overflow;
    return 0;
  }
  return bytes.size();
}

void RequestParser::on_chunk_header_impl(std::uint64_t /*size*/, string_view /*extensions*/,
                                         error_code& /*error*/) {}

std::size_t RequestParser::on_chunk_body_impl(std::uint64_t /*remain*/, string_view bytes,
                                              error_code& error) {
  return on_body_impl(bytes, error);
}

void RequestParser::on_finish_impl(error_code& /*error*/) {}

}  // namespace connector::net::detail
