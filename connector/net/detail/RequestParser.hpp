// detail::RequestParser: reads one HTTP request the way the gateway needs it. The head
// lands in a RequestHead (method, target, version and the few fields the gateway looks
// at; the others are skipped), the body in a common::DataBuffer that becomes the
// delivered message's payload. Both are owned by the connection and reused from one
// request to the next, so that a request of the usual size allocates nothing but its
// body. Private to connector/net.
//
//   RequestHead head;
//   common::DataBuffer body;
//   std::optional<RequestParser> parser;
//   parser.emplace(head, body);                    // afresh for every request
//   parser->header_limit(8192);
//   parser->body_limit(1 << 20);
//   std::size_t used = parser->put(bytes, error);  // boost::beast::http::basic_parser
//
// A body of declared length is allocated once with kPadding bytes to spare after it (a
// JSON parser reading in place needs them); a chunked body grows by doubling, and gets
// the same room at its end.
//
// Thread-safety: as the objects it writes to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <boost/beast/http/basic_parser.hpp>

#include "connector/host/DataBuffer.hpp"

namespace connector::net::detail {

// What the gateway reads of a request's head.
struct RequestHead {
  boost::beast::http::verb method = boost::beast::http::verb::unknown;
  std::string methodText;  // as sent
  std::string target;
  unsigned version = 11;
  std::string contentType;
  std::string authorization;    // the last Authorization field
  int authorizationFields = 0;  // how many there were
  bool expectContinue = false;  // Expect: 100-continue

  // Empties it for the next request, keeping the strings' storage.
  void clear() noexcept;
};

class RequestParser : public boost::beast::http::basic_parser<true> {
 public:
  // Bytes kept free after the body (what a JSON parser reading in place needs).
  static constexpr std::size_t kPadding = 64;

  // Clears `head` and `body`, then fills them as the request arrives.
  RequestParser(RequestHead& head, common::DataBuffer& body) noexcept;

 private:
  using error_code = boost::beast::error_code;
  using string_view = boost::beast::string_view;

  void on_request_impl(boost::beast::http::verb method, string_view methodText, string_view target,
                       int version, error_code& error) override;
  void on_response_impl(int status, string_view reason, int version, error_code& error) override;
  void on_field_impl(boost::beast::http::field name, string_view nameText, string_view value,
                     error_code& error) override;
  void on_header_impl(error_code& error) override;
  void on_body_init_impl(const boost::optional<std::uint64_t>& length, error_code& error) override;
  std::size_t on_body_impl(string_view bytes, error_code& error) override;
  void on_chunk_header_impl(std::uint64_t size, string_view extensions, error_code& error) override;
  std::size_t on_chunk_body_impl(std::uint64_t remain, string_view bytes,
                                 error_code& error) override;
  void on_finish_impl(error_code& error) override;

  // Appends body bytes, growing the buffer when needed; false when out of memory.
  bool append(string_view bytes);

  RequestHead& head;
  common::DataBuffer& body;
};

}  // namespace connector::net::detail
