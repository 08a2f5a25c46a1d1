#include "connector/net/detail/GatewayRequestHandler.hpp"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <istream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/URI.h>

#include "connector/host/DataBuffer.hpp"
#include "connector/net/detail/ErrorBody.hpp"
#include "connector/providers/OpaqueMessage.hpp"

namespace connector::net::detail {

namespace {

using Poco::Net::HTTPResponse;

// The typed dispatch's text for a provider that is not running.
const char* const kNotRunning = "Service exists but is not running.";

// An answer other than 200, carried out of the request's processing.
struct ErrorAnswer {
  HTTPResponse::HTTPStatus status;
  std::string text;
};

struct BodyTooLarge {};

// The declared body length; nothing when the header is not a number.
std::optional<Poco::Int64> declaredLength(const Poco::Net::HTTPServerRequest& request) {
  try {
    return request.getContentLength64();
  } catch (const Poco::SyntaxException&) {
    return std::nullopt;
  }
}

void send(Poco::Net::HTTPServerResponse& response, HTTPResponse::HTTPStatus status,
          const std::string& contentType, const void* bytes, std::size_t size) {
  response.setStatusAndReason(status);
  response.setContentType(contentType);
  response.sendBuffer(bytes, size);
}

// Sends an error answer and flushes it to the socket at once (a lingering close follows
// some of them).
void sendError(Poco::Net::HTTPServerResponse& response, HTTPResponse::HTTPStatus status,
               const std::string& text) {
  const std::string body = errorBody(text);
  response.setStatusAndReason(status);
  response.setContentType("application/json");
  response.setContentLength64(static_cast<Poco::Int64>(body.size()));
  std::ostream& out = response.send();
  out.write(body.data(), static_cast<std::streamsize>(body.size()));
  out.flush();
}

// Reads the request body into one buffer. A chunked body wins over any Content-Length
// header, as the request stream itself decodes it. Throws BodyTooLarge over the limit,
// and Poco::Net::NetException when the client goes away before sending all of it.
common::DataBuffer readBody(Poco::Net::HTTPServerRequest& request, std::size_t limit) {
  std::istream& in = request.stream();
  if (request.getChunkedTransferEncoding()) {
    common::DataBuffer body;
    char chunk[16384];
    while (in.read(chunk, sizeof chunk) || in.gcount() > 0) {
      const auto n = static_cast<std::size_t>(in.gcount());
      if (body.size + n > limit) throw BodyTooLarge{};
      body.append(common::DataBuffer(chunk, n));
    }
    if (in.bad()) throw Poco::Net::NetException("request body cut short");
    return body;
  }
  if (!request.hasContentLength()) return {};  // no body at all
  // The request could not have been read with a Content-Length that is not a number.
  const Poco::Int64 length = declaredLength(request).value_or(-1);
  if (length < 0 || static_cast<std::uint64_t>(length) > limit) throw BodyTooLarge{};
  common::DataBuffer body;
  body.reserve(static_cast<std::size_t>(length));
  in.read(reinterpret_cast<char*>(body.data), static_cast<std::streamsize>(length));
  body.size = static_cast<std::size_t>(in.gcount());
  if (body.size != static_cast<std::size_t>(length)) {
    throw Poco::Net::NetException("request body cut short");
  }
  return body;
}

// After a response that closes the connection while the client may still be sending:
// stop writing, then read and drop what arrives for a short while, so the client sees
// the response instead of a reset. Bounded in time; never throws.
void lingerAndDrain(Poco::Net::HTTPServerRequest& request) {
  auto* impl = dynamic_cast<Poco::Net::HTTPServerRequestImpl*>(&request);
  if (impl == nullptr) return;
  try {
    Poco::Net::StreamSocket& socket = impl->socket();
    socket.shutdownSend();
    socket.setReceiveTimeout(Poco::Timespan(0, 200000));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    char sink[65536];
    while (std::chrono::steady_clock::now() < deadline) {
      if (socket.receiveBytes(sink, sizeof sink) <= 0) break;
    }
  } catch (...) {
    // The client is gone or idle: either way nothing more to wait for.
  }
}

std::string addressesJson(const Router& router) {
  Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
  for (const Address& address : router.addresses()) list->add(address.str());
  Poco::JSON::Object body;
  body.set("addresses", list);
  std::ostringstream out;
  body.stringify(out, 0, -1);
  return out.str();
}

// The decoded path of a request target ("/shop%2FReserveItem?x" -> "/shop/ReserveItem").
// Throws ErrorAnswer 400 for a malformed one.
std::string targetPath(const std::string& target) {
  std::string path = target.substr(0, target.find_first_of("?#"));
  if (path.find('%') == std::string::npos && !path.empty() && path[0] == '/') return path;
  try {
    return Poco::URI(target).getPath();
  } catch (const Poco::Exception&) {
    throw ErrorAnswer{HTTPResponse::HTTP_BAD_REQUEST, "Malformed request target '" + target + "'"};
  }
}

bool isBound(const Router& router, const std::string& address) {
  const std::vector<Address> bound = router.addresses();
  return std::any_of(bound.begin(), bound.end(),
                     [&](const Address& a) { return a.str() == address; });
}

// Delivers one POST to the router and sends the answer; failures become ErrorAnswer.
void serveDelivery(GatewayState& state, Poco::Net::HTTPServerRequest& request,
                   Poco::Net::HTTPServerResponse& response, const std::string& address) {
  common::DataBuffer body = readBody(request, state.maxBodyBytes);
  std::string contentType = request.getContentType();
  if (contentType.empty()) contentType = "application/json";

  std::unique_ptr<Message> answer;
  try {
    answer = state.router
                 ->deliver(std::make_unique<json::OpaqueMessage>(contentType, std::move(body)),
                           Address(address))
                 .get();
  } catch (const std::invalid_argument& error) {
    // An unbound address and a refused request both arrive as invalid_argument; the
    // address table tells them apart.
    if (!isBound(*state.router, address)) {
      throw ErrorAnswer{HTTPResponse::HTTP_NOT_FOUND, error.what()};
    }
    throw ErrorAnswer{HTTPResponse::HTTP_BAD_REQUEST, error.what()};
  } catch (const std::runtime_error& error) {
    if (!state.router->isStarted() || std::string(error.what()) == kNotRunning) {
      throw ErrorAnswer{HTTPResponse::HTTP_SERVICE_UNAVAILABLE, error.what()};
    }
    throw ErrorAnswer{HTTPResponse::HTTP_INTERNAL_SERVER_ERROR, error.what()};
  } catch (const std::exception& error) {
    throw ErrorAnswer{HTTPResponse::HTTP_INTERNAL_SERVER_ERROR, error.what()};
  } catch (...) {
    throw ErrorAnswer{HTTPResponse::HTTP_INTERNAL_SERVER_ERROR,
                      "The service failed with an exception of unknown type"};
  }

  auto* opaque = dynamic_cast<json::OpaqueMessage*>(answer.get());
  if (opaque == nullptr) {
    throw ErrorAnswer{HTTPResponse::HTTP_INTERNAL_SERVER_ERROR,
                      "The service at '" + address + "' answered without an OpaqueMessage"};
  }
  send(response, HTTPResponse::HTTP_OK,
       opaque->contentType.empty() ? std::string("application/json") : opaque->contentType,
       opaque->payload.data, opaque->payload.size);
}

}  // namespace

void GatewayRequestHandler::handleRequest(Poco::Net::HTTPServerRequest& request,
                                          Poco::Net::HTTPServerResponse& response) {
  using Poco::Net::HTTPRequest;
  const std::string& method = request.getMethod();
  bool bodyRead = false;
  try {
    std::string path = targetPath(request.getURI());
    if (path == "/" || path.empty()) {
      if (method != HTTPRequest::HTTP_GET) {
        response.set("Allow", "GET");
        throw ErrorAnswer{HTTPResponse::HTTP_METHOD_NOT_ALLOWED,
                          "Method " + method + " is not allowed on /; use GET"};
      }
      const std::string body = addressesJson(*state->router);
      send(response, HTTPResponse::HTTP_OK, "application/json", body.data(), body.size());
    } else if (method != HTTPRequest::HTTP_POST) {
      response.set("Allow", "POST");
      throw ErrorAnswer{HTTPResponse::HTTP_METHOD_NOT_ALLOWED,
                        "Method " + method + " is not allowed on " + path + "; use POST"};
    } else {
      bodyRead = true;  // serveDelivery reads it before anything can fail
      serveDelivery(*state, request, response, path.substr(1));
    }
  } catch (const ErrorAnswer& answer) {
    // Refused before its body was read: close the connection rather than parse the
    // body as the next request.
    const bool unreadBody =
        !bodyRead && ((request.hasContentLength() && declaredLength(request).value_or(1) > 0) ||
                      request.getChunkedTransferEncoding());
    if (unreadBody) response.setKeepAlive(false);
    sendError(response, answer.status, answer.text);
    if (unreadBody) lingerAndDrain(request);
  } catch (const BodyTooLarge&) {
    response.setKeepAlive(false);
    sendError(
        response, HTTPResponse::HTTP_REQUESTENTITYTOOLARGE,
        "Request body exceeds the limit of " + std::to_string(state->maxBodyBytes) + " bytes");
    lingerAndDrain(request);
  } catch (const Poco::Net::NetException&) {
    // The client went away mid-request: there is nobody to answer. Poco ends the
    // connection when this leaves the handler.
    throw;
  } catch (const std::exception& error) {
    if (!response.sent()) {
      sendError(response, HTTPResponse::HTTP_INTERNAL_SERVER_ERROR, error.what());
    }
  }
  state->served.fetch_add(1, std::memory_order_relaxed);
}

Poco::Net::HTTPRequestHandler* GatewayRequestHandlerFactory::createRequestHandler(
    const Poco::Net::HTTPServerRequest&) {
  return new GatewayRequestHandler(state);
}

}  // namespace connector::net::detail
