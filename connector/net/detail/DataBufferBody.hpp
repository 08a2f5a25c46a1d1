// detail::DataBufferBody: an HTTP message body held in a common::DataBuffer, so that a
// request body is read straight into the buffer an OpaqueMessage carries, and an
// answer's payload is written from the buffer it arrived in, without copies. Private to
// connector/net.
//
//   http::request_parser<DataBufferBody> parser;   // the body lands in parser.get().body()
//
// A body of known length is allocated once at its exact size; a chunked one doubles.
// Thread-safety: as the message holding it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/optional.hpp>

#include "connector/host/DataBuffer.hpp"

namespace connector::net::detail {

struct DataBufferBody {
  using value_type = common::DataBuffer;

  static std::uint64_t size(const value_type& body) { return body.size; }

  class reader {
   public:
    template <bool isRequest, class Fields>
    reader(boost::beast::http::header<isRequest, Fields>& /*header*/, value_type& body)
        : body(body) {}

    void init(const boost::optional<std::uint64_t>& length, boost::beast::error_code& ec) {
      ec = {};
      if (!length) return;
      try {
        body.reserve(static_cast<std::size_t>(*length));
      } catch (const std::runtime_error&) {
        ec = boost::beast::http::error::buffer_overflow;
      }
    }

    template <class ConstBufferSequence>
    std::size_t put(const ConstBufferSequence& buffers, boost::beast::error_code& ec) {
      const std::size_t n = boost::asio::buffer_size(buffers);
      ec = {};
      if (body.size + n > body.capacity) {
        try {
          body.reserve(std::max(body.capacity * 2, body.size + n));
        } catch (const std::runtime_error&) {
          ec = boost::beast::http::error::buffer_overflow;
          return 0;
        }
      }
      for (auto it = boost::asio::buffer_sequence_begin(buffers);
           it != boost::asio::buffer_sequence_end(buffers); ++it) {
        boost::asio::const_buffer piece(*it);
        std::memcpy(body.data + body.size, piece.data(), piece.size());
        body.size += piece.size();
      }
      return n;
    }

    void finish(boost::beast::error_code& ec) { ec = {}; }

   private:
    value_type& body;
  };

  class writer {
   public:
    using const_buffers_type = boost::asio::const_buffer;

    template <bool isRequest, class Fields>
    writer(const boost::beast::http::header<isRequest, Fields>& /*header*/, const value_type& body)
        : body(body) {}

    void init(boost::beast::error_code& ec) { ec = {}; }

    boost::optional<std::pair<const_buffers_type, bool>> get(boost::beast::error_code& ec) {
      ec = {};
      return std::make_pair(const_buffers_type(body.data, body.size), false);
    }

   private:
    const value_type& body;
  };
};

}  // namespace connector::net::detail
