// PrintingLink: a context that wraps the link between two nodes and, while enabled,
// prints every OpaqueMessage that crosses it in either direction (content type and
// JSON text), and the failure when the far side answers with one.
//
//   auto printing = std::make_shared<PrintingLink>(link, std::cout);
//   printing->setEnabled(true);   // off for the load run
//
// Thread-safety: deliver may run on many threads; printing is meant for one request at
// a time (lines of concurrent requests would interleave).
#pragma once

#include <atomic>
#include <exception>
#include <memory>
#include <ostream>
#include <utility>

#include <connector/json.hpp>

class PrintingLink : public connector::Context {
 public:
  PrintingLink(std::shared_ptr<connector::Context> link, std::ostream& out)
      : link(std::move(link)), out(out) {}

  void setEnabled(bool value) { enabled = value; }

  connector::Future<std::unique_ptr<connector::Message>> deliver(
      std::unique_ptr<connector::Message>&& message, connector::Address&& address) override {
    if (!enabled) {
      return link->deliver(std::move(message), std::move(address));
    }
    print("client -> far ", message);
    connector::Future<std::unique_ptr<connector::Message>> answer =
        link->deliver(std::move(message), std::move(address));
    try {
      std::unique_ptr<connector::Message> reply = answer.get();
      print("far -> client ", reply);
      return connector::makeReadyFuture(std::move(reply));
    } catch (const std::exception& error) {
      out << "  far -> client  failure: " << error.what() << "\n";
      return connector::makeFailedFuture<std::unique_ptr<connector::Message>>(
          std::current_exception());
    }
  }

 private:
  void print(const char* direction, const std::unique_ptr<connector::Message>& message) {
    if (auto* opaque = dynamic_cast<const connector::json::OpaqueMessage*>(message.get())) {
      out << "  " << direction << " " << opaque->contentType << "  " << opaque->payload.view()
          << "\n";
    }
  }

  std::shared_ptr<connector::Context> link;
  std::ostream& out;
  std::atomic<bool> enabled{false};
};
