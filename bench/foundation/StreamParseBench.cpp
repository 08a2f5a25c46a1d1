// Poco's JSON parser reading each corpus document through an IStreamSubscriber fed in
// 64 KiB chunks from another thread, against the same parser reading an istringstream.
#include <benchmark/benchmark.h>

#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <connector/json.hpp>

#include "PairedTiming.hpp"

namespace connector::bench {
namespace {

constexpr std::size_t kChunkSize = 64 * 1024;

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

Poco::Dynamic::Var parse(std::istream& in) {
  Poco::JSON::Parser parser(new Poco::JSON::ParseHandler);
  return parser.parse(in);
}

// The subscription of the feeding side: it only notes the demand.
class NoteDemand final : public reactive_streams::Subscription {
 public:
  void request(std::int64_t n) override { demand = n; }
  void cancel() override {}
  std::int64_t demand = 0;
};

void parseThroughSubscriber(const std::string& document) {
  auto reader = std::make_shared<reactive_streams::IStreamSubscriber>();
  auto subscription = std::make_shared<NoteDemand>();
  reader->onSubscribe(subscription);
  std::thread feeder([&] {
    for (std::size_t at = 0; at < document.size(); at += kChunkSize) {
      const std::size_t n = std::min(kChunkSize, document.size() - at);
      reader->onNext(common::DataBuffer(document.data() + at, n));
    }
    reader->onComplete();
  });
  Poco::Dynamic::Var result = parse(reader->stream());
  feeder.join();
  benchmark::DoNotOptimize(result);
}

void parseFromStringStream(const std::string& document) {
  std::istringstream in(document);
  Poco::Dynamic::Var result = parse(in);
  benchmark::DoNotOptimize(result);
}

void BM_ParseThroughIStreamSubscriber(benchmark::State& state, const std::string& document) {
  PairedTiming timing;
  bool connectorFirst = true;
  for (auto _ : state) {
    if (connectorFirst) {
      timing.connector([&] { parseThroughSubscriber(document); });
      timing.baseline([&] { parseFromStringStream(document); });
    } else {
      timing.baseline([&] { parseFromStringStream(document); });
      timing.connector([&] { parseThroughSubscriber(document); });
    }
    connectorFirst = !connectorFirst;
  }
  timing.reportBandwidthRatio(state, static_cast<double>(document.size()),
                              "vs istringstream, goal >= 0.9");
}

// One benchmark per corpus document, registered before main runs them.
const bool registered = [] {
  const std::filesystem::path corpus = std::filesystem::path(CONNECTOR_SHARED_DATA_DIR) / "corpus";
  std::vector<std::filesystem::path> documents;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(corpus, ignored)) {
    if (entry.path().extension() == ".json") {
      documents.push_back(entry.path());
    }
  }
  std::sort(documents.begin(), documents.end());
  for (const auto& path : documents) {
    auto document = std::make_shared<const std::string>(readFile(path));
    benchmark::RegisterBenchmark(
        ("BM_ParseThroughIStreamSubscriber/" + path.filename().string()).c_str(),
        [document](benchmark::State& state) { BM_ParseThroughIStreamSubscriber(state, *document); })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond)
        ->MinTime(2.0);
  }
  return true;
}();

}  // namespace
}  // namespace connector::bench
