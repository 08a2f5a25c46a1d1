// GET /metrics: the Prometheus text exposition of the gateway's metrics, line by line,
// and counters that move with the traffic.
#include <chrono>
#include <map>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <connector/transport/MetricsRegistry.hpp>

#include "EchoGateway.hpp"
#include "RawClient.hpp"

namespace {

using nettest::EchoGateway;
using nettest::RawClient;
using nettest::Reply;

const std::chrono::milliseconds kAnswerWait{5000};

struct Exposition {
  std::map<std::string, std::string> types;  // family -> counter, gauge, histogram...
  std::map<std::string, double> samples;     // "name{labels}" -> value
  std::string firstBadLine;
};

// Parses the text format: "# HELP <name> <text>", "# TYPE <name> <type>", and samples
// "<name>[{<label>="<value>",...}] <number>"; a sample's family must have a TYPE before.
Exposition parse(const std::string& text) {
  static const std::regex help(R"(# HELP [a-zA-Z_:][a-zA-Z0-9_:]* .*)");
  static const std::regex type(
      R"(# TYPE ([a-zA-Z_:][a-zA-Z0-9_:]*) (counter|gauge|histogram|summary|untyped))");
  static const std::regex sample(
      R"(([a-zA-Z_:][a-zA-Z0-9_:]*)(\{([a-zA-Z_][a-zA-Z0-9_]*="[^"\\]*"(,[a-zA-Z_][a-zA-Z0-9_]*="[^"\\]*")*)?\})? ([-+0-9.eE]+|\+Inf|-Inf|NaN))");
  Exposition out;
  std::istringstream lines(text);
  std::string line;
  std::smatch match;
  while (std::getline(lines, line)) {
    if (line.empty()) continue;
    if (std::regex_match(line, match, type)) {
      out.types[match[1]] = match[2];
    } else if (std::regex_match(line, help)) {
    } else if (std::regex_match(line, match, sample)) {
      const std::string name = match[1];
      std::string family = name;
      for (const char* suffix : {"_bucket", "_sum", "_count"}) {
        const std::string s(suffix);
        if (!out.types.count(family) && family.size() > s.size() &&
            family.compare(family.size() - s.size(), s.size(), s) == 0) {
          family = family.substr(0, family.size() - s.size());
        }
      }
      if (!out.types.count(family) && out.firstBadLine.empty()) out.firstBadLine = line;
      out.samples[name + match[2].str()] = std::stod(match[5]);
    } else if (out.firstBadLine.empty()) {
      out.firstBadLine = line;
    }
  }
  return out;
}

Exposition scrape(RawClient& client) {
  EXPECT_TRUE(client.send(nettest::get("/metrics")));
  std::optional<Reply> reply = client.readReply(kAnswerWait);
  EXPECT_TRUE(reply);
  if (!reply) return {};
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->header("content-type"), "text/plain; version=0.0.4; charset=utf-8");
  return parse(reply->body);
}

TEST(GatewayMetricsTest, MetricsParseAsPrometheusTextAndTheirCountersMove) {
  EchoGateway echo;
  RawClient client(echo.port());
  const Exposition before = scrape(client);
  EXPECT_EQ(before.firstBadLine, "");
  EXPECT_EQ(before.types.at("connector_gateway_requests_total"), "counter");
  EXPECT_EQ(before.types.at("connector_gateway_request_duration_seconds"), "histogram");
  EXPECT_EQ(before.types.at("connector_gateway_connections_open"), "gauge");
  EXPECT_EQ(before.types.at("connector_gateway_requests_in_flight"), "gauge");
  EXPECT_EQ(before.types.at("connector_gateway_rejected_total"), "counter");
  for (const char* reason : {"connections", "header_size", "body_size", "busy", "header_timeout",
                             "body_timeout", "delivery_timeout", "tls", "auth", "content_type"}) {
    EXPECT_EQ(before.samples.count("connector_gateway_rejected_total{reason=\"" +
                                   std::string(reason) + "\"}"),
              1u)
        << reason;
  }
  EXPECT_EQ(before.samples.at("connector_gateway_connections_open"), 1);
  // This scrape itself is the one request in flight.
  EXPECT_EQ(before.samples.at("connector_gateway_requests_in_flight"), 1);

  ASSERT_TRUE(client.send(nettest::post("/echo", "{}")));
  ASSERT_TRUE(client.readReply(kAnswerWait));
  ASSERT_TRUE(client.send(nettest::post("/nowhere", "{}")));
  ASSERT_TRUE(client.readReply(kAnswerWait));
  RawClient second(echo.port());
  const Exposition after = scrape(second);
  EXPECT_EQ(after.firstBadLine, "");
  const std::string ok = "connector_gateway_requests_total{status=\"200\"}";
  const std::string missing = "connector_gateway_requests_total{status=\"404\"}";
  // The first scrape was answered 200 too.
  EXPECT_EQ(after.samples.at(ok) - before.samples.at(ok), 2);
  EXPECT_EQ(after.samples.at(missing) - before.samples.at(missing), 1);
  const std::string count = "connector_gateway_request_duration_seconds_count";
  EXPECT_EQ(after.samples.at(count) - before.samples.at(count), 3);
  EXPECT_EQ(after.samples.at("connector_gateway_connections_open"), 2);
  EXPECT_EQ(echo.gateway->requestsServed(), 4u);
}

TEST(GatewayMetricsTest, AnotherTransportsMetricsShowInTheSameExposition) {
  auto shared = std::make_shared<connector::transport::MetricsRegistry>();
  shared->counter("connector_nats_requests_total", "NATS requests", {{"status", "200"}})
      .increment(3);
  connector::net::HttpGatewayOptions options;
  options.metrics = shared;
  EchoGateway echo(options);
  EXPECT_EQ(echo.gateway->metrics(), shared);
  RawClient client(echo.port());
  const Exposition exposition = scrape(client);
  EXPECT_EQ(exposition.types.at("connector_nats_requests_total"), "counter");
  EXPECT_EQ(exposition.samples.at("connector_nats_requests_total{status=\"200\"}"), 3);
  EXPECT_EQ(exposition.types.at("connector_gateway_requests_total"), "counter");
}

}  // namespace
