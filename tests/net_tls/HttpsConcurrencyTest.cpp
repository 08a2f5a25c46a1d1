// HTTPS under concurrent clients: one HttpLink shared by several threads, each delivery
// on its own TLS connection or a reused one, against a gateway with several I/O threads.
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "NetFixtures.hpp"
#include "TestPki.hpp"

namespace {

using connector::net::HttpGatewayOptions;
using connector::net::HttpLinkOptions;
using nettest::testPki;

TEST(HttpsConcurrencyTest, ThreadsSharingOneLinkAreAllAnsweredOverTls) {
  HttpGatewayOptions options;
  options.tlsCertificateFile = testPki().file("server.pem");
  options.tlsKeyFile = testPki().file("server.key");
  options.ioThreads = 2;
  options.threads = 4;
  nettest::FarShop far(options);
  HttpLinkOptions linkOptions;
  linkOptions.caFile = testPki().file("ca.pem");
  linkOptions.maxIdleConnections = 2;  // some deliveries open new connections
  nettest::ClientShop client(far.url(), linkOptions);

  constexpr int kThreads = 4;
  constexpr int kEach = 25;
  std::atomic<int> accepted{0};
  std::atomic<int> failed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kEach; ++i) {
        try {
          auto answer = client.reserve("LAMP-01", 1);
          if (dynamic_cast<shop::Reservation&>(*answer).accepted) ++accepted;
        } catch (const std::exception&) {
          ++failed;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failed.load(), 0);
  EXPECT_EQ(accepted.load(), kThreads * kEach);
  EXPECT_EQ(far.gateway->requestsServed(), static_cast<std::uint64_t>(kThreads * kEach));
  EXPECT_LE(client.link->idleConnections(), 2u);
}

}  // namespace
