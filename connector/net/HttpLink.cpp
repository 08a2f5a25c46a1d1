#include "connector/net/HttpLink.hpp"

#include <cstdlib>
#include <exception>
#include <istream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <Poco/Exception.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/SSLException.h>
#include <Poco/URI.h>

#include "connector/futures/MakeFuture.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/net/detail/BearerTokens.hpp"
#include "connector/net/detail/LinkSession.hpp"
#include "connector/net/detail/LinkTls.hpp"
#include "connector/providers/OpaqueMessage.hpp"
#include "connector/transport/ErrorBody.hpp"
#include "connector/transport/NotOpaque.hpp"

namespace connector::net {

namespace {

using MessagePtr = std::unique_ptr<Message>;

// A failure of one attempt that no Poco exception describes.
struct AttemptFailure {
  std::string cause;
};

// Reads a body of known length straight into its buffer.
common::DataBuffer readSizedBody(detail::LinkSession& session, std::size_t length) {
  common::DataBuffer body;
  body.reserve(length);
  while (body.size < length) {
    const std::size_t n = session.readBody(body.data + body.size, length - body.size);
    if (n == 0) {
      throw AttemptFailure{"connection closed after " + std::to_string(body.size) + " of " +
                           std::to_string(length) + " response body bytes"};
    }
    body.size += n;
  }
  return body;
}

// Reads a chunked or close-delimited body through Poco's decoding stream.
common::DataBuffer readStreamedBody(std::istream& in) {
  common::DataBuffer body;
  char chunk[16384];
  while (in.read(chunk, sizeof chunk) || in.gcount() > 0) {
    body.append(common::DataBuffer(chunk, static_cast<std::size_t>(in.gcount())));
  }
  if (in.bad()) throw AttemptFailure{"response body cut short"};
  return body;
}

std::string describeStatus(const Poco::Net::HTTPResponse& response, std::string_view body) {
  std::string text = "HTTP " + std::to_string(static_cast<int>(response.getStatus()));
  if (!response.getReason().empty()) text += " " + response.getReason();
  const std::string serverText = transport::errorText(body);
  if (!serverText.empty()) text += ": " + serverText;
  return text;
}

}  // namespace

HttpLink::HttpLink(const std::string& baseUrl, HttpLinkOptions options)
    : linkOptions(std::move(options)) {
  const std::string badUrl = "HttpLink needs an http:// or https:// URL, not '" + baseUrl + "'";
  Poco::URI uri;
  try {
    uri = Poco::URI(baseUrl);
  } catch (const Poco::Exception&) {
    throw std::invalid_argument(badUrl);
  }
  const bool secure = uri.getScheme() == "https";
  if ((uri.getScheme() != "http" && !secure) || uri.getHost().empty() || !uri.getQuery().empty() ||
      !uri.getFragment().empty()) {
    throw std::invalid_argument(badUrl);
  }
  if (linkOptions.connectTimeout.count() <= 0 || linkOptions.readTimeout.count() <= 0) {
    throw std::invalid_argument("HttpLink time-outs must be positive");
  }
  if (!secure && !linkOptions.caFile.empty()) {
    throw std::invalid_argument("HttpLink takes a CA file only with an https:// URL");
  }
  if (!linkOptions.bearerToken.empty() && !detail::BearerTokens::isToken(linkOptions.bearerToken)) {
    throw std::invalid_argument(
        "HttpLink bearer token holds a character a bearer token cannot hold");
  }
  if (secure) tls = std::make_shared<const detail::LinkTls>(linkOptions.caFile);
  host = uri.getHost();
  port = uri.getPort();
  Poco::URI::encode(uri.getPath(), "?#", basePath);
  while (!basePath.empty() && basePath.back() == '/') basePath.pop_back();
  const bool ipv6 = host.find(':') != std::string::npos;
  origin = (secure ? "https://" : "http://") + (ipv6 ? "[" + host + "]" : host) + ":" +
           std::to_string(port);
}

HttpLink::~HttpLink() = default;

std::string HttpLink::urlFor(const Address& address) const {
  std::string path = basePath + "/";
  Poco::URI::encode(address.str(), "?#", path);
  return origin + path;
}

std::size_t HttpLink::idleConnections() const {
  std::lock_guard<std::mutex> lock(poolMutex);
  return idle.size();
}

std::unique_ptr<detail::LinkSession> HttpLink::takeSession(bool fresh, bool& reused) {
  std::vector<std::unique_ptr<detail::LinkSession>> stale;
  {
    std::lock_guard<std::mutex> lock(poolMutex);
    if (fresh) {
      // A pooled connection just turned out dead: the server closed or restarted, so the
      // other idle ones are most likely dead too. They close outside the lock.
      stale.swap(idle);
    } else if (!idle.empty()) {
      std::unique_ptr<detail::LinkSession> session = std::move(idle.back());
      idle.pop_back();
      reused = true;
      return session;
    }
  }
  reused = false;
  return std::make_unique<detail::LinkSession>(host, port, linkOptions, tls.get());
}

void HttpLink::giveBack(std::unique_ptr<detail::LinkSession> session) {
  std::lock_guard<std::mutex> lock(poolMutex);
  if (idle.size() < linkOptions.maxIdleConnections) {
    idle.push_back(std::move(session));
  }
  // Otherwise the parameter closes its connection when the call ends.
}

Future<std::unique_ptr<Message>> HttpLink::deliver(std::unique_ptr<Message>&& message,
                                                   Address&& address) {
  auto* opaque = dynamic_cast<json::OpaqueMessage*>(message.get());
  if (opaque == nullptr) {
    return makeFailedFuture<MessagePtr>(transport::notOpaque(message.get(), "HttpLink"));
  }

  const std::string url = urlFor(address);
  const std::string target = url.substr(origin.size());
  std::string cause;
  for (int attempt = 0; attempt < 2; ++attempt) {
    bool reused = false;
    std::unique_ptr<detail::LinkSession> session;
    if (tls) detail::LinkTls::clearVerifyFailure();
    try {
      session = takeSession(attempt > 0, reused);
      Poco::Net::HTTPRequest request(Poco::Net::HTTPRequest::HTTP_POST, target,
                                     Poco::Net::HTTPMessage::HTTP_1_1);
      request.setContentType(opaque->contentType.empty() ? std::string("application/json")
                                                         : opaque->contentType);
      request.setContentLength64(static_cast<Poco::Int64>(opaque->payload.size));
      request.setKeepAlive(true);
      if (!linkOptions.bearerToken.empty()) {
        request.set("Authorization", "Bearer " + linkOptions.bearerToken);
      }
      // Poco buffers the headers in the body stream; flush them before writing the body
      // straight to the socket.
      session->sendRequest(request).flush();
      session->sendBody(opaque->payload.data, opaque->payload.size);

      Poco::Net::HTTPResponse response;
      std::istream& in = session->receiveResponse(response);
      common::DataBuffer body =
          response.hasContentLength()
              ? readSizedBody(*session, static_cast<std::size_t>(response.getContentLength64()))
              : readStreamedBody(in);
      const bool keepAlive = response.getKeepAlive();
      const auto status = static_cast<int>(response.getStatus());
      if (keepAlive) giveBack(std::move(session));
      if (status < 200 || status > 299) {
        cause = describeStatus(response, body.view());
        break;
      }
      std::string contentType = response.getContentType();
      return makeReadyFuture<MessagePtr>(
          std::make_unique<json::OpaqueMessage>(contentType, std::move(body)));
    } catch (const AttemptFailure& failure) {
      cause = failure.cause;
    } catch (const Poco::TimeoutException&) {
      cause =
          session && session->connecting()
              ? "no connection within " + std::to_string(linkOptions.connectTimeout.count()) + " ms"
              : "no response within " + std::to_string(linkOptions.readTimeout.count()) + " ms";
    } catch (const Poco::Net::ConnectionRefusedException&) {
      cause = "connection refused";
    } catch (const Poco::Net::ConnectionResetException&) {
      cause = "connection reset by peer";
      if (reused) continue;
    } catch (const Poco::Net::NoMessageException&) {
      cause = "connection closed before a response arrived";
      if (reused) continue;
    } catch (const Poco::Net::HostNotFoundException&) {
      cause = "host not found: " + host;
    } catch (const Poco::Net::NoAddressFoundException&) {
      cause = "host not found: " + host;
    } catch (const Poco::Net::CertificateValidationException&) {
      // Thrown after the handshake, when the chain verified but names another host.
      cause = "TLS certificate verification failed: the certificate does not name " + host;
    } catch (const Poco::Net::SSLException& error) {
      const std::string why = detail::LinkTls::verifyFailure();
      if (!why.empty()) {
        cause = "TLS certificate verification failed: " + why;
      } else if (session && session->connecting()) {
        cause = "TLS handshake failed: " + error.message();
      } else {
        // A reused connection that the server had closed, or a failure mid-exchange.
        cause = "TLS: " + error.message();
        if (reused) continue;
      }
    } catch (const Poco::Net::MessageException& error) {
      cause = "malformed response (" + error.message() + ")";
    } catch (const Poco::IOException& error) {
      // A broken pipe while sending on a connection the server had closed.
      cause = error.displayText();
      if (reused) continue;
    } catch (const Poco::Exception& error) {
      cause = error.displayText();
    } catch (const std::exception& error) {
      cause = error.what();
    }
    break;
  }
  return makeFailedFuture<MessagePtr>(
      std::make_exception_ptr(std::runtime_error("POST " + url + " failed: " + cause)));
}

}  // namespace connector::net
