// What every fuzz target shares: a serializer with a message type whose converters read
// and write several kinds of members, the module logger switched on into a sink that
// formats records and drops them, and the checks that turn a broken promise of the
// module into a crash the fuzzer reports.
//
//   Harness& h = Harness::instance();
//   Outcome outcome = resolve(h.serializer->deserialize(publisher));
//   require(outcome.message || startsWith(outcome.error, "Parsing error: "), "bad text");
//
// Thread-safety: the fuzz targets run single-threaded; the harness is built once.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include <boost/log/core.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/make_shared.hpp>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>
#include <connector/serializer/detail/CheckedParseHandler.hpp>

namespace connector::fuzzing {

// A message with a string, an integer and an arbitrary JSON array.
struct Sample : Message {
  std::string name;
  std::int64_t count = 0;
  Poco::JSON::Array::Ptr items;
};

inline constexpr const char* kSample = "fuzz/Sample";
inline constexpr const char* kPlain = "connector/Message";

// Ends the process with a message: the fuzzer records the input as a crash.
[[noreturn]] inline void failWith(const std::string& why) {
  std::fprintf(stderr, "fuzz check failed: %s\n", why.c_str());
  std::abort();
}

inline void require(bool condition, const std::string& why) {
  if (!condition) {
    failWith(why);
  }
}

inline bool startsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// The end of a deserialization: a message, or the text of a std::invalid_argument.
struct Outcome {
  std::unique_ptr<Message> message;
  std::string error;
  bool failed = false;
};

// Takes the result of a future that must already be resolved; any exception other than
// std::invalid_argument is a failed check.
inline Outcome resolve(Future<std::unique_ptr<Message>>&& future) {
  require(future.valid(), "the returned future is not valid");
  Outcome outcome;
  bool resolved = false;
  future.then([&](Future<std::unique_ptr<Message>> done) {
    resolved = true;
    try {
      outcome.message = done.get();
      require(outcome.message != nullptr, "a null message was delivered");
    } catch (const std::invalid_argument& e) {
      outcome.failed = true;
      outcome.error = e.what();
    } catch (const std::exception& e) {
      failWith(std::string("undocumented exception: ") + e.what());
    } catch (...) {
      failWith("a non-standard exception");
    }
  });
  require(resolved, "the returned future was still pending");
  return outcome;
}

class Harness {
 public:
  static Harness& instance() {
    static Harness harness;
    return harness;
  }

  // The message's serialized form.
  std::string textOf(const std::unique_ptr<Message>& message) {
    std::ostringstream out;
    serializer->serialize(message, out);
    return out.str();
  }

  // The document parsed from one std::istream, as the streamed operations parse it,
  // but without a publisher. Throws what the parser and the extraction throw.
  static Poco::JSON::Object::Ptr parseWhole(const std::string& document) {
    Poco::SharedPtr<Poco::JSON::ParseHandler> handler(new json::detail::CheckedParseHandler);
    Poco::JSON::Parser parser(handler);
    std::istringstream in(document);
    Poco::Dynamic::Var root = parser.parse(in);
    return root.extract<Poco::JSON::Object::Ptr>();
  }

  std::shared_ptr<json::JsonSerializerImpl> serializer =
      std::make_shared<json::JsonSerializerImpl>();

 private:
  Harness() {
    serializer->registerType(
        kSample, typeid(Sample),
        [](const std::unique_ptr<Message>& m) {
          const auto& sample = static_cast<const Sample&>(*m);
          Poco::JSON::Object::Ptr o = new Poco::JSON::Object();
          o->set("name", sample.name);
          o->set("count", sample.count);
          if (!sample.items.isNull()) {
            o->set("items", sample.items);
          }
          return o;
        },
        [](Poco::JSON::Object::Ptr o) -> std::unique_ptr<Message> {
          auto sample = std::make_unique<Sample>();
          sample->name = o->getValue<std::string>("name");
          sample->count = o->getValue<std::int64_t>("count");
          sample->items = o->getArray("items");
          return sample;
        });
    // Records are formatted and then dropped: a backend with no stream attached.
    auto sink = boost::make_shared<
        boost::log::sinks::synchronous_sink<boost::log::sinks::text_ostream_backend>>();
    boost::log::core::get()->add_sink(sink);
    json::moduleLogger.setEnabledSeverities(json::kModuleLogSeverity);
  }
};

}  // namespace connector::fuzzing
