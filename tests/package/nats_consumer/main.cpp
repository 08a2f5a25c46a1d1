// A consumer of the installed package's `nats` component: maps an address to its subject
// and sees a link to an unreachable server refused with its documented text.
#include <connector/json.hpp>
#include <connector/nats/NatsLink.hpp>
#include <connector/nats/NatsListener.hpp>

#include <chrono>
#include <iostream>
#include <stdexcept>
#include <string>

int main() {
  using namespace connector;
  const std::string subject = nats::subjectFor(Address("shop/ReserveItem"));
  std::cout << subject << '\n';  // connector.shop.ReserveItem
  if (subject != "connector.shop.ReserveItem") return 1;

  nats::NatsLinkOptions options;
  options.url = "nats://127.0.0.1:1";
  options.connectTimeout = std::chrono::milliseconds(200);
  try {
    nats::NatsLink link(options);
  } catch (const std::runtime_error& error) {
    std::cout << error.what() << '\n';
    return std::string(error.what()) ==
                   "NatsLink cannot connect to nats://127.0.0.1:1: No server available for "
                   "connection"
               ? 0
               : 1;
  }
  return 1;
}
