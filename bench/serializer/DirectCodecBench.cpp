// The declared types' direct codec against the converter path, the same declarations on
// the same documents, alternately in one run (PairedTiming), and against the limit of
// simdjson's own On-Demand walk of the same bytes:
//   - Read/<doc>: the streamed deserialize (by name; canada by its "type") of the corpus
//     documents from a one-shot publisher; goal: at least 10x the converter path's
//     bytes per second.
//   - Write/<doc>: serialize(message, out) of the same documents' messages; goal 5x.
//   - RoundTrip/shop_ReserveItem: serialize(message), then the streamed deserialize by
//     "type" of its publisher; goal 3x.
//   - Walk/<doc>: the direct read against simdjson parsing the same bytes and visiting
//     every value (getting every string and number): the fraction of that limit reached.
// Counters: MiB/s (or ns) of each side and their ratio, with its median over iterations.
#include <benchmark/benchmark.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>

#include <simdjson.h>

#include <connector/json.hpp>

#include "corpus/CorpusTypes.hpp"
#include "foundation/PairedTiming.hpp"
#include "shop/ShopMessages.hpp"
#include "shop/ShopTypes.hpp"

namespace {

using connector::Message;
using connector::bench::PairedTiming;
using connector::json::JsonSerializerImpl;

std::string readCorpus(const std::string& file) {
  const std::string path = std::string(CONNECTOR_SHARED_DATA_DIR) + "/corpus/" + file;
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Both serializers: the same declarations, through the direct codec and through the
// converters alone.
struct Serializers {
  Serializers() {
    const corpus::CorpusTypes& types = corpus::corpusTypes();
    declare(types.twitter);
    declare(types.citmCatalog);
    declare(types.featureCollection);
    declare(shop::shopTypes().reserveItem);
  }
  template <typename T>
  void declare(const connector::json::MessageType<T>& type) {
    type.registerWith(*direct);
    converters->registerType(type.name(), typeid(T), type.serializer(), type.deserializer());
  }
  std::shared_ptr<JsonSerializerImpl> direct = std::make_shared<JsonSerializerImpl>();
  std::shared_ptr<JsonSerializerImpl> converters = std::make_shared<JsonSerializerImpl>();
};

Serializers& serializers() {
  static Serializers both;
  return both;
}

// An output stream into a string that keeps its storage from one use to the next.
class TextSink : public std::streambuf {
 public:
  std::string text;

 protected:
  std::streamsize xsputn(const char* bytes, std::streamsize n) override {
    text.append(bytes, static_cast<std::size_t>(n));
    return n;
  }
  int_type overflow(int_type c) override {
    if (!traits_type::eq_int_type(c, traits_type::eof())) text.push_back(static_cast<char>(c));
    return traits_type::not_eof(c);
  }
};

struct Document {
  const char* file;
  const char* name;  // nullptr: read by "type"
};

const Document kTwitter{"twitter.json", "corpus/Twitter"};
const Document kCitm{"citm_catalog.json", "corpus/CitmCatalog"};
const Document kCanada{"canada.json", nullptr};

// One streamed deserialize of bytes, timed from the publisher's creation to the message.
double timedRead(JsonSerializerImpl& serializer, const Document& document,
                 const connector::common::DataBuffer& bytes) {
  connector::common::DataBuffer copy = bytes;  // not timed: the peer's buffer
  const auto start = std::chrono::steady_clock::now();
  auto publisher = std::make_shared<
      connector::reactive_streams::OneShotPublisher<connector::common::DataBuffer>>(
      std::move(copy));
  std::unique_ptr<Message> message = document.name != nullptr
                                         ? serializer.deserialize(document.name, publisher).get()
                                         : serializer.deserialize(publisher).get();
  const auto stop = std::chrono::steady_clock::now();
  benchmark::DoNotOptimize(message.get());
  return std::chrono::duration<double, std::nano>(stop - start).count();
}

void Read(benchmark::State& state, const Document& document) {
  const std::string text = readCorpus(document.file);
  const connector::common::DataBuffer bytes(text.data(), text.size());
  Serializers& both = serializers();
  PairedTiming timing;
  bool directFirst = true;
  for (auto _ : state) {
    auto direct = [&] { timing.addConnector(timedRead(*both.direct, document, bytes)); };
    auto converters = [&] { timing.addBaseline(timedRead(*both.converters, document, bytes)); };
    directFirst ? (direct(), converters()) : (converters(), direct());
    directFirst = !directFirst;
  }
  timing.reportBandwidthRatio(state, static_cast<double>(text.size()),
                              "direct against converters, goal bandwidth_ratio >= 10");
}

void Write(benchmark::State& state, const Document& document) {
  const std::string text = readCorpus(document.file);
  Serializers& both = serializers();
  const std::string typeName = document.name != nullptr ? document.name : "FeatureCollection";
  std::unique_ptr<Message> message =
      both.converters
          ->deserialize(
              typeName,
              std::make_shared<
                  connector::reactive_streams::OneShotPublisher<connector::common::DataBuffer>>(
                  connector::common::DataBuffer(text.data(), text.size())))
          .get();
  TextSink sink;
  std::ostream out(&sink);
  PairedTiming timing;
  bool directFirst = true;
  for (auto _ : state) {
    auto direct = [&] {
      sink.text.clear();
      timing.connector([&] { both.direct->serialize(message, out); });
    };
    auto converters = [&] {
      sink.text.clear();
      timing.baseline([&] { both.converters->serialize(message, out); });
    };
    directFirst ? (direct(), converters()) : (converters(), direct());
    directFirst = !directFirst;
  }
  timing.reportBandwidthRatio(state, static_cast<double>(text.size()),
                              "direct against converters, goal bandwidth_ratio >= 5");
}

void RoundTrip(benchmark::State& state) {
  constexpr int kBatch = 64;
  Serializers& both = serializers();
  const std::unique_ptr<Message> request = std::make_unique<shop::ReserveItem>("LAMP-01", 2);
  auto roundTrip = [&request](JsonSerializerImpl& serializer) {
    for (int i = 0; i < kBatch; ++i) {
      std::unique_ptr<Message> back = serializer.deserialize(serializer.serialize(request)).get();
      benchmark::DoNotOptimize(back.get());
    }
  };
  PairedTiming timing;
  bool directFirst = true;
  for (auto _ : state) {
    auto direct = [&] { timing.connector([&] { roundTrip(*both.direct); }); };
    auto converters = [&] { timing.baseline([&] { roundTrip(*both.converters); }); };
    directFirst ? (direct(), converters()) : (converters(), direct());
    directFirst = !directFirst;
  }
  timing.reportTimeRatio(state, kBatch, "direct against converters, goal time_ratio <= 0.33");
}

// simdjson's own parse and walk: every value visited, every string and number got.
simdjson::error_code walk(simdjson::ondemand::value value) {
  simdjson::ondemand::json_type type;
  SIMDJSON_TRY(value.type().get(type));
  switch (type) {
    case simdjson::ondemand::json_type::object: {
      simdjson::ondemand::object object;
      SIMDJSON_TRY(value.get_object().get(object));
      for (auto field : object) {
        std::string_view key;
        SIMDJSON_TRY(field.unescaped_key().get(key));
        benchmark::DoNotOptimize(key.data());
        SIMDJSON_TRY(walk(field.value()));
      }
      return simdjson::SUCCESS;
    }
    case simdjson::ondemand::json_type::array: {
      simdjson::ondemand::array array;
      SIMDJSON_TRY(value.get_array().get(array));
      for (auto item : array) {
        simdjson::ondemand::value element;
        SIMDJSON_TRY(item.get(element));
        SIMDJSON_TRY(walk(element));
      }
      return simdjson::SUCCESS;
    }
    case simdjson::ondemand::json_type::number: {
      simdjson::ondemand::number number;
      SIMDJSON_TRY(value.get_number().get(number));
      benchmark::DoNotOptimize(number);
      return simdjson::SUCCESS;
    }
    case simdjson::ondemand::json_type::string: {
      std::string_view text;
      SIMDJSON_TRY(value.get_string().get(text));
      benchmark::DoNotOptimize(text.data());
      return simdjson::SUCCESS;
    }
    case simdjson::ondemand::json_type::boolean: {
      bool flag = false;
      SIMDJSON_TRY(value.get_bool().get(flag));
      benchmark::DoNotOptimize(flag);
      return simdjson::SUCCESS;
    }
    case simdjson::ondemand::json_type::null:
      return value.is_null().error();
  }
  return simdjson::INCORRECT_TYPE;
}

void Walk(benchmark::State& state, const Document& document) {
  const std::string text = readCorpus(document.file);
  const connector::common::DataBuffer bytes(text.data(), text.size());
  Serializers& both = serializers();
  const simdjson::padded_string padded(text);
  simdjson::ondemand::parser parser;
  PairedTiming timing;
  for (auto _ : state) {
    timing.addConnector(timedRead(*both.direct, document, bytes));
    timing.baseline([&] {
      simdjson::ondemand::document doc = parser.iterate(padded);
      simdjson::ondemand::object root;
      if (doc.get_object().get(root) != simdjson::SUCCESS) throw std::runtime_error("no object");
      for (auto field : root) {
        if (walk(field.value()) != simdjson::SUCCESS) throw std::runtime_error("walk failed");
      }
    });
  }
  timing.reportBandwidthRatio(state, static_cast<double>(text.size()),
                              "direct read against simdjson's own walk (the limit)");
}

}  // namespace

BENCHMARK_CAPTURE(Read, twitter, kTwitter)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Read, citm_catalog, kCitm)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Read, canada, kCanada)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Write, twitter, kTwitter)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Write, citm_catalog, kCitm)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Write, canada, kCanada)->Unit(benchmark::kMillisecond);
BENCHMARK(RoundTrip)->Name("RoundTrip/shop_ReserveItem");
BENCHMARK_CAPTURE(Walk, twitter, kTwitter)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Walk, citm_catalog, kCitm)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Walk, canada, kCanada)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
