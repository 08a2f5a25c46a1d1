// RawNatsClient: a plain nats.c connection for the tests, to call a NatsListener the way
// any NATS client would, and to answer a NatsLink with hand-made replies.
//
//   RawNatsClient client(server.url());
//   RawReply reply = client.request("connector.shop.ReserveItem", R"({"type":...})");
//   client.respond("connector.test.>", [](const RawRequest& r) { return RawReply{...}; });
//
// Thread-safety: request() from any thread, respond() from one; responders run on nats.c's
// delivery threads.
// The destructor closes the connection (and so its subscriptions).
#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include <nats/nats.h>

namespace natstest {

struct RawReply {
  std::map<std::string, std::string> headers;  // first value of each
  std::string body;
  bool noResponders = false;
  bool timedOut = false;
};

struct RawRequest {
  std::string subject;
  std::string reply;
  std::map<std::string, std::string> headers;
  std::string body;
};

inline std::map<std::string, std::string> headersOf(natsMsg* message) {
  std::map<std::string, std::string> headers;
  const char** keys = nullptr;
  int count = 0;
  if (natsMsgHeader_Keys(message, &keys, &count) == NATS_OK) {
    for (int i = 0; i < count; ++i) {
      const char* value = nullptr;
      if (natsMsgHeader_Get(message, keys[i], &value) == NATS_OK) headers[keys[i]] = value;
    }
    std::free(static_cast<void*>(keys));
  }
  return headers;
}

inline std::string bodyOf(natsMsg* message) {
  return std::string(natsMsg_GetData(message),
                     static_cast<std::size_t>(natsMsg_GetDataLength(message)));
}

class RawNatsClient {
 public:
  using Responder = std::function<RawReply(const RawRequest&)>;

  explicit RawNatsClient(const std::string& url) {
    if (natsConnection_ConnectTo(&connection, url.c_str()) != NATS_OK) {
      throw std::runtime_error("cannot connect to " + url);
    }
  }
  ~RawNatsClient() {
    for (natsSubscription* subscription : subscriptions) {
      natsSubscription_Unsubscribe(subscription);
      natsSubscription_Destroy(subscription);
    }
    natsConnection_Destroy(connection);
  }
  RawNatsClient(const RawNatsClient&) = delete;
  RawNatsClient& operator=(const RawNatsClient&) = delete;

  natsConnection* get() const { return connection; }

  // A request with the given headers (none when `headers` is empty); waits `timeoutMs`.
  RawReply request(const std::string& subject, const std::string& body,
                   const std::map<std::string, std::string>& headers = {{"Content-Type",
                                                                         "application/json"}},
                   int timeoutMs = 5000) {
    natsMsg* message = nullptr;
    natsMsg_Create(&message, subject.c_str(), nullptr, body.data(), static_cast<int>(body.size()));
    for (const auto& [key, value] : headers) natsMsgHeader_Set(message, key.c_str(), value.c_str());
    natsMsg* answer = nullptr;
    const natsStatus status = natsConnection_RequestMsg(&answer, connection, message, timeoutMs);
    natsMsg_Destroy(message);
    RawReply reply;
    if (status == NATS_NO_RESPONDERS) {
      reply.noResponders = true;
    } else if (status == NATS_TIMEOUT) {
      reply.timedOut = true;
    } else if (status != NATS_OK) {
      throw std::runtime_error(std::string("request failed: ") + natsStatus_GetText(status));
    } else {
      reply.headers = headersOf(answer);
      reply.body = bodyOf(answer);
      natsMsg_Destroy(answer);
    }
    return reply;
  }

  // Publishes without a reply subject.
  void publish(const std::string& subject, const std::string& body) {
    natsConnection_Publish(connection, subject.c_str(), body.data(), static_cast<int>(body.size()));
    natsConnection_Flush(connection);
  }

  // Answers every request on `subject` (a wildcard allowed) with `responder`'s reply; a
  // reply with timedOut set is not sent. Returns once the server has the subscription.
  void respond(const std::string& subject, Responder responder) {
    responders.push_back(std::move(responder));
    natsSubscription* subscription = nullptr;
    if (natsConnection_Subscribe(&subscription, connection, subject.c_str(),
                                 &RawNatsClient::onRequest, &responders.back()) != NATS_OK) {
      throw std::runtime_error("cannot subscribe to " + subject);
    }
    subscriptions.push_back(subscription);
    natsConnection_Flush(connection);
  }

 private:
  static void onRequest(natsConnection* connection, natsSubscription* /*subscription*/,
                        natsMsg* message, void* closure) {
    auto& responder = *static_cast<Responder*>(closure);
    RawRequest request;
    request.subject = natsMsg_GetSubject(message);
    request.reply = natsMsg_GetReply(message) != nullptr ? natsMsg_GetReply(message) : "";
    request.headers = headersOf(message);
    request.body = bodyOf(message);
    natsMsg_Destroy(message);
    const RawReply reply = responder(request);
    if (reply.timedOut || request.reply.empty()) return;
    natsMsg* answer = nullptr;
    natsMsg_Create(&answer, request.reply.c_str(), nullptr, reply.body.data(),
                   static_cast<int>(reply.body.size()));
    for (const auto& [key, value] : reply.headers)
      natsMsgHeader_Set(answer, key.c_str(), value.c_str());
    natsConnection_PublishMsg(connection, answer);
    natsMsg_Destroy(answer);
  }

  natsConnection* connection = nullptr;
  std::list<Responder> responders;  // each one the closure of its subscription
  std::list<natsSubscription*> subscriptions;
};

}  // namespace natstest
