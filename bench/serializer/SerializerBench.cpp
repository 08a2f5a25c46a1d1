// The serializer measured against Poco doing the same work, in the same iterations:
//   - Serialize/<doc>: serialize(message, out) of a message whose converter returns the
//     parsed corpus document, versus Poco::JSON::Object::stringify of that object
//     (counter ratio; goal <= 1.05);
//   - StreamedDeserialize/<doc>: deserialize(publisher) of the document's bytes
//     published in 64 KiB chunks, versus Poco::JSON::Parser::parse of the same bytes
//     held in a std::string (counter ratio; goal <= 1.10);
//   - SmallRoundTrip: a five-member message serialized to text and rebuilt through the
//     streamed deserialize, versus stringify-then-parse of the same five-member object
//     (counter ratio; goal <= 1.5), and versus Poco doing the whole round trip by hand,
//     the building of the object and of the message included (ratio_vs_same_work).
// Each iteration times both sides on the thread's CPU clock, alternating which goes first.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <ctime>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

namespace {

using connector::Future;
using connector::Message;
using connector::common::DataBuffer;
using connector::json::JsonSerializerImpl;
using connector::reactive_streams::PublisherAPI;
using connector::reactive_streams::SubscriberAPI;
using connector::reactive_streams::Subscription;
using ObjectPtr = Poco::SharedPtr<Poco::JSON::Object>;

constexpr std::size_t kChunk = 64 * 1024;
constexpr int kBlockRuns = 4;

std::string readCorpus(const std::string& name) {
  const std::string path = std::string(CONNECTOR_SHARED_DATA_DIR) + "/corpus/" + name;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    throw std::runtime_error("cannot read " + path);
  }
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// A message that carries a whole JSON document.
struct DocumentMessage : Message {
  explicit DocumentMessage(ObjectPtr document) : document(std::move(document)) {}
  ObjectPtr document;
};

// A message of five members.
struct Order : Message {
  std::string sku = "A-1234-XL";
  std::int64_t quantity = 12;
  double price = 19.95;
  bool gift = true;
  std::string note = "leave at the door";
};

ObjectPtr orderToJson(const std::unique_ptr<Message>& message) {
  const auto& order = static_cast<const Order&>(*message);
  ObjectPtr object(new Poco::JSON::Object);
  object->set("sku", order.sku);
  object->set("quantity", order.quantity);
  object->set("price", order.price);
  object->set("gift", order.gift);
  object->set("note", order.note);
  return object;
}

std::unique_ptr<Message> orderFromJson(ObjectPtr object) {
  auto order = std::make_unique<Order>();
  order->sku = object->getValue<std::string>("sku");
  order->quantity = object->getValue<std::int64_t>("quantity");
  order->price = object->getValue<double>("price");
  order->gift = object->getValue<bool>("gift");
  order->note = object->getValue<std::string>("note");
  return order;
}

std::shared_ptr<JsonSerializerImpl> makeSerializer() {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType(
      "bench/Document", typeid(DocumentMessage),
      [](const std::unique_ptr<Message>& m) {
        return static_cast<const DocumentMessage&>(*m).document;
      },
      [](ObjectPtr object) { return std::make_unique<DocumentMessage>(std::move(object)); });
  serializer->registerType("bench/Order", typeid(Order), orderToJson, orderFromJson);
  return serializer;
}

// Publishes prepared chunks synchronously at the first request.
class PreparedPublisher final : public PublisherAPI<DataBuffer> {
 public:
  explicit PreparedPublisher(std::vector<DataBuffer>&& chunks) : chunks(std::move(chunks)) {}
  Future<bool> completion() override { return connector::makeReadyFuture<bool>(true); }
  void subscribe(std::shared_ptr<SubscriberAPI<DataBuffer>> s) override {
    subscriber = std::move(s);
    subscriber->onSubscribe(demand);
  }

 private:
  class Demand final : public Subscription {
   public:
    explicit Demand(PreparedPublisher& owner) : owner(owner) {}
    void request(std::int64_t) override {
      if (done) {
        return;
      }
      done = true;
      for (DataBuffer& chunk : owner.chunks) {
        owner.subscriber->onNext(std::move(chunk));
      }
      owner.subscriber->onComplete();
    }
    void cancel() override { done = true; }

   private:
    PreparedPublisher& owner;
    bool done = false;
  };

  std::vector<DataBuffer> chunks;
  std::shared_ptr<SubscriberAPI<DataBuffer>> subscriber;
  std::shared_ptr<Subscription> demand = std::make_shared<Demand>(*this);
};

std::vector<DataBuffer> chunksOf(const std::string& bytes, std::size_t size) {
  std::vector<DataBuffer> chunks;
  for (std::size_t at = 0; at < bytes.size(); at += size) {
    chunks.emplace_back(bytes.data() + at, std::min(size, bytes.size() - at));
  }
  return chunks;
}

// CPU time of this thread: both sides run on it, and it is not skewed by other
// processes competing for the cores.
struct Clock {
  static double now() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
  }
};

double seconds(double elapsed) { return elapsed; }

// Reports both sides and their ratio.
void report(benchmark::State& state, double ours, double poco, double goal) {
  const double n = static_cast<double>(state.iterations());
  state.counters["ours_us"] = ours / n * 1e6;
  state.counters["poco_us"] = poco / n * 1e6;
  state.counters["ratio"] = ours / poco;
  state.SetLabel("goal ratio <= " + std::to_string(goal).substr(0, 4));
}

void Serialize(benchmark::State& state, const std::string& file) {
  const std::string text = readCorpus(file);
  Poco::JSON::Parser parser;
  const ObjectPtr document = parser.parse(text).extract<ObjectPtr>();
  auto serializer = makeSerializer();
  const std::unique_ptr<Message> message = std::make_unique<DocumentMessage>(document);
  double ours = 0;
  double poco = 0;
  bool oursFirst = true;
  for (auto _ : state) {
    std::ostringstream a;
    std::ostringstream b;
    auto runOurs = [&] {
      const double t0 = Clock::now();
      serializer->serialize(message, a);
      ours += seconds(Clock::now() - t0);
    };
    auto runPoco = [&] {
      const double t0 = Clock::now();
      document->stringify(b, 0, -1);
      poco += seconds(Clock::now() - t0);
    };
    if (oursFirst) {
      runOurs();
      runPoco();
    } else {
      runPoco();
      runOurs();
    }
    oursFirst = !oursFirst;
    if (a.tellp() != b.tellp()) {
      state.SkipWithError("texts differ");
      break;
    }
  }
  report(state, ours, poco, 1.05);
}

void StreamedDeserialize(benchmark::State& state, const std::string& file) {
  auto serializer = makeSerializer();
  // The document's serialized form, so that its "type" selects the converter.
  std::string bytes;
  {
    Poco::JSON::Parser parser;
    const ObjectPtr document = parser.parse(readCorpus(file)).extract<ObjectPtr>();
    std::ostringstream out;
    serializer->serialize(std::make_unique<DocumentMessage>(document), out);
    bytes = out.str();
  }
  double ours = 0;
  double poco = 0;
  bool oursFirst = true;
  for (auto _ : state) {
    // Each side gets its input freshly made just before it is timed, so that both start
    // from the same allocator state (glibc defers the consolidation of freed small
    // blocks to the next large allocation, which the input's making then absorbs).
    auto runOurs = [&] {
      auto publisher = std::make_shared<PreparedPublisher>(chunksOf(bytes, kChunk));
      const double t0 = Clock::now();
      std::unique_ptr<Message> message = serializer->deserialize(publisher).get();
      benchmark::DoNotOptimize(message.get());
      message.reset();
      ours += seconds(Clock::now() - t0);
    };
    auto runPoco = [&] {
      const std::string input = bytes;
      const double t0 = Clock::now();
      Poco::JSON::Parser parser;
      Poco::Dynamic::Var root = parser.parse(input);
      benchmark::DoNotOptimize(root);
      root.empty();
      poco += seconds(Clock::now() - t0);
    };
    // Blocks of runs per side: the heap left behind by one side's document is then
    // the same kind of heap that the same side left, which keeps the two from
    // inheriting each other's allocator state.
    for (int run = 0; run < kBlockRuns; ++run) {
      oursFirst ? runOurs() : runPoco();
    }
    for (int run = 0; run < kBlockRuns; ++run) {
      oursFirst ? runPoco() : runOurs();
    }
    oursFirst = !oursFirst;
  }
  state.SetBytesProcessed(
      static_cast<std::int64_t>(state.iterations() * kBlockRuns * bytes.size()));
  report(state, ours / kBlockRuns, poco / kBlockRuns, 1.10);
}

void SmallRoundTrip(benchmark::State& state) {
  auto serializer = makeSerializer();
  const std::unique_ptr<Message> message = std::make_unique<Order>();
  const ObjectPtr object = orderToJson(message);
  double ours = 0;
  double poco = 0;
  double pocoWithConverters = 0;
  int turn = 0;
  auto runOurs = [&] {
    const double t0 = Clock::now();
    std::ostringstream out;
    serializer->serialize(message, out);
    std::vector<DataBuffer> chunks;
    const std::string text = out.str();
    chunks.emplace_back(text.data(), text.size());
    std::unique_ptr<Message> back =
        serializer->deserialize(std::make_shared<PreparedPublisher>(std::move(chunks))).get();
    benchmark::DoNotOptimize(back.get());
    back.reset();
    ours += seconds(Clock::now() - t0);
  };
  // What the brief calls the raw work: the object exists already, and the parsed
  // document is not turned back into a message.
  auto runPoco = [&] {
    const double t0 = Clock::now();
    std::ostringstream out;
    object->stringify(out, 0, -1);
    Poco::JSON::Parser parser;
    Poco::Dynamic::Var root = parser.parse(out.str());
    benchmark::DoNotOptimize(root);
    root.empty();
    poco += seconds(Clock::now() - t0);
  };
  // The same round trip done by hand with Poco: the converters' work included.
  auto runPocoWithConverters = [&] {
    const double t0 = Clock::now();
    ObjectPtr built = orderToJson(message);
    built->set("type", std::string("bench/Order"));
    std::ostringstream out;
    built->stringify(out, 0, -1);
    Poco::JSON::Parser parser;
    Poco::Dynamic::Var root = parser.parse(out.str());
    std::unique_ptr<Message> back = orderFromJson(root.extract<ObjectPtr>());
    benchmark::DoNotOptimize(back.get());
    back.reset();
    root.empty();
    pocoWithConverters += seconds(Clock::now() - t0);
  };
  for (auto _ : state) {
    switch (turn++ % 3) {
      case 0:
        runOurs();
        runPoco();
        runPocoWithConverters();
        break;
      case 1:
        runPoco();
        runPocoWithConverters();
        runOurs();
        break;
      default:
        runPocoWithConverters();
        runOurs();
        runPoco();
        break;
    }
  }
  report(state, ours, poco, 1.5);
  state.counters["ratio_vs_same_work"] = ours / pocoWithConverters;
}

}  // namespace

BENCHMARK_CAPTURE(Serialize, twitter, std::string("twitter.json"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Serialize, citm_catalog, std::string("citm_catalog.json"))
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Serialize, canada, std::string("canada.json"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(StreamedDeserialize, twitter, std::string("twitter.json"))
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(StreamedDeserialize, citm_catalog, std::string("citm_catalog.json"))
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(StreamedDeserialize, canada, std::string("canada.json"))
    ->Unit(benchmark::kMillisecond);
BENCHMARK(SmallRoundTrip)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
