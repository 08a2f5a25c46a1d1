// NatsCluster: three nats-servers of the test's own joined in one cluster on loopback,
// started and stopped by the test. Node 0 is the seed the others route to; once all
// three run, every node has routes to the other two (the servers tell each other), so
// any one of them may be killed and the other two stay joined.
//
//   NatsCluster cluster;                 // starts the three, waits until they are joined
//   options.url = cluster.urls();        // "nats://127.0.0.1:P0,nats://127.0.0.1:P1,..."
//   cluster.node(1).stop(true);          // SIGKILL one node
//
// Each server announces its client URL to the clients (connect_urls), so a client
// connected to one node learns the others. Ready means: a subscription made on any node
// is reached from every other node (checked with plain nats.c connections, within 10 s;
// else the constructor throws).
//
// Thread-safety: one thread drives it.
#pragma once

#include <array>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <nats/nats.h>

#include "support/NatsServerProcess.hpp"

namespace connector::testing {

class NatsCluster {
 public:
  static constexpr int kNodes = 3;

  NatsCluster() {
    nodes[0] = std::make_unique<NatsServerProcess>(clusterConfig(0));
    nodes[0]->start();
    for (int i = 1; i < kNodes; ++i) {
      nodes[i] = std::make_unique<NatsServerProcess>(clusterConfig(nodes[0]->routePort()));
      nodes[i]->start();
    }
    waitUntilJoined();
  }

  NatsServerProcess& node(int i) { return *nodes.at(static_cast<std::size_t>(i)); }

  // Every node's client URL, separated by ','.
  std::string urls() const {
    std::string list;
    for (const auto& server : nodes) list += (list.empty() ? "" : ",") + server->url();
    return list;
  }

  // The index of the node whose client URL is `url`; -1 for none.
  int indexOf(const std::string& url) const {
    for (int i = 0; i < kNodes; ++i) {
      if (nodes[static_cast<std::size_t>(i)]->url() == url) return i;
    }
    return -1;
  }

 private:
  // A cluster block on a free route port, routing to the seed's `seedPort` (none for 0).
  static std::string clusterConfig(std::uint16_t seedPort) {
    std::string config = "cluster {\n  name: connector-test\n  listen: \"127.0.0.1:-1\"\n";
    if (seedPort != 0) {
      config += "  routes: [\"nats-route://127.0.0.1:" + std::to_string(seedPort) + "\"]\n";
    }
    return config + "}";
  }

  // Subscribes on each node and requests from each other node until answered.
  void waitUntilJoined() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::array<natsConnection*, kNodes> connections{};
    std::array<natsSubscription*, kNodes> echoes{};
    bool joined = true;
    for (int i = 0; i < kNodes && joined; ++i) {
      auto at = static_cast<std::size_t>(i);
      joined = natsConnection_ConnectTo(&connections[at], nodes[at]->url().c_str()) == NATS_OK &&
               natsConnection_Subscribe(&echoes[at], connections[at],
                                        ("cluster.check." + std::to_string(i)).c_str(), &echo,
                                        nullptr) == NATS_OK &&
               natsConnection_Flush(connections[at]) == NATS_OK;
    }
    for (int to = 0; to < kNodes && joined; ++to) {
      for (int from = 0; from < kNodes && joined; ++from) {
        joined = false;
        while (!joined && std::chrono::steady_clock::now() < deadline) {
          natsMsg* reply = nullptr;
          joined = natsConnection_RequestString(&reply, connections[static_cast<std::size_t>(from)],
                                                ("cluster.check." + std::to_string(to)).c_str(),
                                                "ping", 200) == NATS_OK;
          natsMsg_Destroy(reply);
          if (!joined) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
      }
    }
    for (std::size_t i = 0; i < kNodes; ++i) {
      natsSubscription_Destroy(echoes[i]);
      natsConnection_Destroy(connections[i]);
    }
    if (!joined) {
      std::string logs;
      for (const auto& server : nodes) logs += "\n--- " + server->url() + "\n" + server->log();
      throw std::runtime_error("the three nats-servers did not join in 10 s; their logs:" + logs);
    }
  }

  static void echo(natsConnection* connection, natsSubscription* /*subscription*/, natsMsg* message,
                   void* /*closure*/) {
    natsConnection_PublishString(connection, natsMsg_GetReply(message), "pong");
    natsMsg_Destroy(message);
  }

  std::array<std::unique_ptr<NatsServerProcess>, kNodes> nodes;
};

}  // namespace connector::testing
