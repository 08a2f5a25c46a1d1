// Fuzz target: the declared types' direct codec against their converters. The input's
// first byte chooses the declared type, whether the document is read by "type" or by
// name, and how its bytes are published; the rest is the document. Both paths must end
// the same way (the same message, member by member and bit for bit, or the same
// exception type and text, and the same log records), and a message read must be
// written to the same bytes by all four serializing operations.
//
//   byte 0   bits 0-1: the type (Order, AllKinds, an object of anything, numbers);
//            bit 5 set: Shipment instead (every member option and newer member kind:
//            quoted integers, bounds, patterns, times, durations, bytes, sets, arrays,
//            unordered maps, tagged unions, kept unknown members)
//            bit 2: read by name instead of by "type"
//            bits 3-4: one buffer, one buffer with room after it, chunks of (byte 1 + 1)
//            bytes, or those chunks and then a failure
//   byte 1   the chunk size less one (only with bits 3-4 at 2 or 3)
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <connector/json.hpp>

#include "support/DirectDifferential.hpp"
#include "support/StagedPublisher.hpp"
#include "types/DeclaredOrder.hpp"
#include "types/DeclaredShipment.hpp"

namespace {

using namespace connector;
using namespace connector::testing;

struct Anything : Message {};
struct Numbers : Message {
  std::vector<double> doubles;
  std::vector<float> floats;
  std::vector<std::int64_t> integers;
  std::optional<std::uint64_t> large;
};

struct Declared {
  Declared() {
    anything = std::make_unique<json::MessageType<Anything>>("fuzz/Anything");
    numbers = std::make_unique<json::MessageType<Numbers>>("fuzz/Numbers");
    numbers->field("doubles", &Numbers::doubles)
        .field("floats", &Numbers::floats)
        .field("integers", &Numbers::integers)
        .field("large", &Numbers::large);
    both.declare(types.order);
    both.declare(types.allKinds);
    both.declare(*anything);
    both.declare(*numbers);
    both.declare(shipments.shipment);
    names = {types.order.name(), types.allKinds.name(), anything->name(), numbers->name(),
             shipments.shipment.name()};
  }
  typestest::OrderTypes types;
  typestest::ShipmentTypes shipments;
  std::unique_ptr<json::MessageType<Anything>> anything;
  std::unique_ptr<json::MessageType<Numbers>> numbers;
  DirectDifferential both;
  std::vector<std::string> names;
};

void require(const std::string& difference, const std::string& what) {
  if (difference.empty()) return;
  std::fprintf(stderr, "direct codec and converters disagree (%s): %s\n", what.c_str(),
               difference.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Declared declared;
  if (size < 2) return 0;
  const std::uint8_t header = data[0];
  const std::size_t chunk = static_cast<std::size_t>(data[1]) + 1;
  const std::string document(reinterpret_cast<const char*>(data + 2), size - 2);
  const std::string& name = declared.names[(header & 32U) != 0 ? 4 : header & 3U];
  const std::string* byName = (header & 4U) != 0 ? &name : nullptr;

  BytePublisherFactory publish;
  switch ((header >> 3) & 3U) {
    case 0:
      publish = oneShot(document);
      break;
    case 1:
      publish = oneShot(document, 64);
      break;
    case 2:
      publish = [&] {
        return std::make_shared<StagedPublisher>(StagedPublisher::split(document, chunk));
      };
      break;
    default:
      publish = [&] {
        return std::make_shared<StagedPublisher>(
            StagedPublisher::split(document, chunk),
            std::make_exception_ptr(std::runtime_error("stream failed")));
      };
      break;
  }
  require(declared.both.compareRead(byName, publish), "reading");

  const ReadOutcome read =
      DirectDifferential::read(*declared.both.reference, &name, oneShot(document)());
  if (read.message) require(declared.both.compareWrite(read.message), "writing");
  return 0;
}
