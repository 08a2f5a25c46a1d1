#include "connector/serializer/JsonSerializerImpl.hpp"

#include <algorithm>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <typeinfo>
#include <utility>

#include <Poco/Dynamic/Var.h>
#include <Poco/Exception.h>
#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

#include "connector/futures/MakeFuture.hpp"
#include "connector/host/Demangle.hpp"
#include "connector/host/IStreamSubscriber.hpp"
#include "connector/host/ModuleLogger.hpp"
#include "connector/host/PublisherFromStream.hpp"
#include "connector/serializer/detail/ByteCollector.hpp"
#include "connector/serializer/detail/CheckedParseHandler.hpp"
#include "connector/serializer/detail/DirectDocument.hpp"

namespace connector::json {
namespace {

using ObjectPtr = Poco::SharedPtr<Poco::JSON::Object>;
using MessagePtr = std::unique_ptr<connector::Message>;

constexpr const char* kDefaultName = "connector/Message";

// Text of the std::out_of_range for a name without a serializer converter. Fixed here
// rather than left to the standard library's own map look-up, whose wording differs
// between library implementations.
constexpr const char* kUnknownSerializerName = "_Map_base::at";

// std::type_info::name() without the leading '*' some platforms use for local types.
const char* rawTypeName(const std::type_info& type) {
  const char* name = type.name();
  return *name == '*' ? name + 1 : name;
}

// The readable class name used as key of namesByTypeName: qualified demangled form,
// with any leading keyword (text up to the first blank) dropped.
std::string lookupTypeName(const std::type_info& type) {
  std::string readable =
      foundation::core::diag::detail::demangle_typeid_name(rawTypeName(type), true);
  const auto blank = readable.find(' ');
  if (!readable.empty() && blank != std::string::npos) {
    readable.erase(0, blank + 1);
  }
  return readable;
}

// Appends name to names unless it is already listed.
void appendOnce(std::vector<std::string>& names, const std::string& name) {
  if (std::find(names.begin(), names.end(), name) == names.end()) {
    names.push_back(name);
  }
}

// Removes name from every list of the map and drops lists left empty.
template <typename Map>
void removeNameFromAll(Map& map, const std::string& name) {
  for (auto entry = map.begin(); entry != map.end();) {
    auto& names = entry->second;
    names.erase(std::remove(names.begin(), names.end(), name), names.end());
    if (names.empty()) {
      entry = map.erase(entry);
    } else {
      ++entry;
    }
  }
}

// The writer behind the serializing publishers: it owns its copy of the object.
std::function<void(std::ostream&)> makeWriter(ObjectPtr object) {
  return [object = std::move(object)](std::ostream& out) {
    if (object.isNull()) {
      throw Poco::NullPointerException();
    }
    object->stringify(out, 0, -1);
  };
}

// The writer of text a direct codec made.
std::function<void(std::ostream&)> makeTextWriter(std::string text) {
  return [text = std::move(text)](std::ostream& out) {
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
  };
}

// A thread's buffer for the direct text that goes straight to a stream; a buffer
// grown past this by a large message is given back afterwards.
constexpr std::size_t kKeptScratch = std::size_t{1} << 20;

class ScratchText {
 public:
  ScratchText() : wasBusy(busy) {
    busy = true;
    text().clear();
  }
  ~ScratchText() {
    if (!wasBusy) {
      busy = false;
      if (shared.capacity() > kKeptScratch) std::string().swap(shared);
    }
  }
  ScratchText(const ScratchText&) = delete;
  ScratchText& operator=(const ScratchText&) = delete;

  // The thread's buffer; a buffer of its own for a write inside a write on one thread.
  std::string& text() { return wasBusy ? own : shared; }

 private:
  static thread_local std::string shared;
  static thread_local bool busy;
  const bool wasBusy;
  std::string own;
};

thread_local std::string ScratchText::shared;
thread_local bool ScratchText::busy = false;

}  // namespace

JsonSerializer::~JsonSerializer() = default;

DirectCodec::~DirectCodec() = default;

JsonSerializerImpl::JsonSerializerImpl() {
  registerType(
      kDefaultName, typeid(connector::Message),
      [](const MessagePtr&) { return ObjectPtr(new Poco::JSON::Object(0)); },
      [](const ObjectPtr&) { return std::make_unique<connector::Message>(); });
}

// NOLINTNEXTLINE(bugprone-exception-escape): a failure here ends the process, on purpose.
JsonSerializerImpl::~JsonSerializerImpl() {
  // Not through the virtual slot: a subclass is already gone here. The destructor is
  // noexcept, so a failure (connector::Message no longer registered) ends the process.
  JsonSerializerImpl::deregisterType(typeid(connector::Message));
  std::lock_guard<std::mutex> guard(mutex);
  serializers.clear();
  deserializers.clear();
  namesByType.clear();
  namesByTypeName.clear();
  directCodecs.clear();
}

void JsonSerializerImpl::storeConvertersLocked(const std::string& name, SerializerFn&& serializer,
                                               DeserializerFn&& deserializer) {
  serializers[name] = std::move(serializer);
  deserializers[name] = std::move(deserializer);
  dropDirectCodecLocked(name);
}

void JsonSerializerImpl::dropDirectCodecLocked(const std::string& name) {
  if (directCodecs.erase(name) != 0) {
    directCodecCount.store(directCodecs.size(), std::memory_order_relaxed);
  }
}

bool JsonSerializerImpl::registerTypeIfNotRegistered(const std::string& name,
                                                     const std::type_info& type,
                                                     SerializerFn serializer,
                                                     DeserializerFn deserializer) {
  std::lock_guard<std::mutex> guard(mutex);
  if (serializers.count(name) != 0) {
    return false;
  }
  storeConvertersLocked(name, std::move(serializer), std::move(deserializer));
  appendOnce(namesByType[std::type_index(type)], name);
  return true;
}

bool JsonSerializerImpl::registerTypeIfNotRegistered(const std::string& name,
                                                     const std::string& typeName,
                                                     SerializerFn serializer,
                                                     DeserializerFn deserializer) {
  std::lock_guard<std::mutex> guard(mutex);
  if (serializers.count(name) != 0) {
    return false;
  }
  storeConvertersLocked(name, std::move(serializer), std::move(deserializer));
  appendOnce(namesByTypeName[typeName], name);
  return true;
}

void JsonSerializerImpl::registerType(const std::string& name, const std::type_info& type,
                                      SerializerFn serializer, DeserializerFn deserializer) {
  std::lock_guard<std::mutex> guard(mutex);
  storeConvertersLocked(name, std::move(serializer), std::move(deserializer));
  appendOnce(namesByType[std::type_index(type)], name);
}

void JsonSerializerImpl::registerType(const std::string& name, const std::type_info& type,
                                      SerializerFn serializer, DeserializerFn deserializer,
                                      std::shared_ptr<const DirectCodec> codec) {
  std::lock_guard<std::mutex> guard(mutex);
  storeConvertersLocked(name, std::move(serializer), std::move(deserializer));
  appendOnce(namesByType[std::type_index(type)], name);
  if (codec) {
    directCodecs[name] = std::move(codec);
    directCodecCount.store(directCodecs.size(), std::memory_order_relaxed);
  }
}

void JsonSerializerImpl::deregisterType(const std::type_info& type) {
  // Deliberately the demangled name as it stands (no keyword stripping, unlike
  // getNamesOfType).
  const std::string readableName =
      foundation::core::diag::detail::demangle_typeid_name(rawTypeName(type), true);
  const std::type_index key(type);
  std::lock_guard<std::mutex> guard(mutex);
  const auto byType = namesByType.find(key);
  const auto byTypeName = namesByTypeName.find(readableName);
  if (byType == namesByType.end() && byTypeName == namesByTypeName.end()) {
    throw std::runtime_error("No type name for type found");
  }
  NameList removed;
  if (byType != namesByType.end()) {
    removed = std::move(byType->second);
    namesByType.erase(byType);
  }
  for (const auto& name : removed) {
    serializers.erase(name);
    deserializers.erase(name);
    dropDirectCodecLocked(name);
  }
  removed.clear();
  if (byTypeName != namesByTypeName.end()) {
    removed = std::move(byTypeName->second);
    namesByTypeName.erase(byTypeName);
  }
  for (const auto& name : removed) {
    serializers.erase(name);
    deserializers.erase(name);
    dropDirectCodecLocked(name);
  }
}

void JsonSerializerImpl::deregisterType(const std::string& name) {
  std::lock_guard<std::mutex> guard(mutex);
  removeNameFromAll(namesByType, name);
  removeNameFromAll(namesByTypeName, name);
  serializers.erase(name);
  deserializers.erase(name);
  dropDirectCodecLocked(name);
}

std::vector<std::string> JsonSerializerImpl::getNamesOfType(const std::type_info& type) {
  std::lock_guard<std::mutex> guard(mutex);
  if (const auto found = namesByType.find(std::type_index(type)); found != namesByType.end()) {
    return found->second;
  }
  if (const auto found = namesByTypeName.find(lookupTypeName(type));
      found != namesByTypeName.end()) {
    return found->second;
  }
  return {};
}

std::string JsonSerializerImpl::getNameForMessage(const MessagePtr& message) {
  const std::type_info& type = typeid(*message.get());  // std::bad_typeid when null
  const std::vector<std::string> names = getNamesOfType(type);
  if (names.empty()) {
    throw std::invalid_argument(
        "No serializer for type: " +
        foundation::core::diag::detail::demangle_typeid_name(rawTypeName(type), false));
  }
  std::lock_guard<std::mutex> guard(mutex);
  if (serializers.count(names.front()) == 0) {
    throw std::runtime_error("Serializer not found: " + names.front());
  }
  return names.front();
}

std::shared_ptr<JsonSerializer> JsonSerializerImpl::getPtr() { return shared_from_this(); }

bool JsonSerializerImpl::directCodecsApply() const noexcept {
  return typeid(*this) == typeid(JsonSerializerImpl) &&
         directCodecCount.load(std::memory_order_relaxed) != 0;
}

std::shared_ptr<const DirectCodec> JsonSerializerImpl::directCodecFor(const std::string& name) {
  std::lock_guard<std::mutex> guard(mutex);
  const auto found = directCodecs.find(name);
  return found == directCodecs.end() ? nullptr : found->second;
}

bool JsonSerializerImpl::writeDirect(const MessagePtr& message, bool withType, std::string& out) {
  if (!message || !directCodecsApply()) {
    return false;
  }
  // The name getNameForMessage would give (the first registered for the message's
  // class) and its codec, in one look-up; whatever getNameForMessage would find
  // otherwise or refuse, the converter path then finds or refuses itself.
  std::string name;
  std::shared_ptr<const DirectCodec> codec;
  {
    std::lock_guard<std::mutex> guard(mutex);
    const auto names = namesByType.find(std::type_index(typeid(*message)));
    if (names == namesByType.end() || names->second.empty()) {
      return false;
    }
    // A name with a direct codec always has its converters too.
    const auto found = directCodecs.find(names->second.front());
    if (found == directCodecs.end()) {
      return false;
    }
    codec = found->second;
    if (withType) {
      name = found->first;
    }
  }
  return codec->write(*message, withType ? &name : nullptr, out);
}

Poco::SharedPtr<Poco::JSON::Object> JsonSerializerImpl::serializeToJsonObject(
    const std::string& name, const MessagePtr& message) {
  std::unique_lock<std::mutex> lock(mutex);
  const auto found = serializers.find(name);
  if (found == serializers.end()) {
    throw std::out_of_range(kUnknownSerializerName);  // the lock is released by unwinding
  }
  SerializerFn converter = found->second;
  try {
    lock.unlock();
    return converter(message);
  } catch (const std::exception& e) {
    logError("Exception serializing ", name, ", ", e.what());
    throw std::runtime_error("Error while serializing: " + name + ", " + e.what());
  } catch (...) {
    logError("Unknown exception serializing ", name);
    throw std::runtime_error("Error while serializing: " + name);
  }
}

Poco::SharedPtr<Poco::JSON::Object> JsonSerializerImpl::serializeToJsonObject(
    const MessagePtr& message) {
  const std::string name = getNameForMessage(message);
  return serializeToJsonObject(name, message);
}

BytePublisher JsonSerializerImpl::serialize(const MessagePtr& message) {
  if (std::string text; writeDirect(message, true, text)) {
    return connector::reactive_streams::makePublisherFromStream(makeTextWriter(std::move(text)));
  }
  const std::string name = getNameForMessage(message);
  ObjectPtr object = serializeToJsonObject(name, message);
  if (object.isNull()) {
    throw Poco::NullPointerException();
  }
  object->set("type", name);
  return connector::reactive_streams::makePublisherFromStream(makeWriter(std::move(object)));
}

void JsonSerializerImpl::serialize(const MessagePtr& message, std::ostream& out) {
  {
    ScratchText scratch;
    if (writeDirect(message, true, scratch.text())) {
      out.write(scratch.text().data(), static_cast<std::streamsize>(scratch.text().size()));
      return;
    }
  }
  const std::string name = getNameForMessage(message);
  // serializeToJsonObject(message) looks the name up once more; kept so that an
  // override of that slot sees every serialization.
  ObjectPtr object = serializeToJsonObject(message);
  if (object.isNull()) {
    throw Poco::NullPointerException();
  }
  object->set("type", name);
  if (object.isNull()) {
    throw Poco::NullPointerException();
  }
  object->stringify(out, 0, -1);
}

BytePublisher JsonSerializerImpl::serializeValue(const MessagePtr& message) {
  if (std::string text; writeDirect(message, false, text)) {
    return connector::reactive_streams::makePublisherFromStream(makeTextWriter(std::move(text)));
  }
  ObjectPtr object = serializeToJsonObject(message);
  return connector::reactive_streams::makePublisherFromStream(makeWriter(std::move(object)));
}

void JsonSerializerImpl::serializeValue(const MessagePtr& message, std::ostream& out) {
  {
    ScratchText scratch;
    if (writeDirect(message, false, scratch.text())) {
      out.write(scratch.text().data(), static_cast<std::streamsize>(scratch.text().size()));
      return;
    }
  }
  ObjectPtr object = serializeToJsonObject(message);
  if (object.isNull()) {
    throw Poco::NullPointerException();
  }
  object->stringify(out, 0, -1);
}

MessagePtr JsonSerializerImpl::deserialize(const std::string& name, ObjectPtr&& object) {
  std::unique_lock<std::mutex> lock(mutex);
  const auto found = deserializers.find(name);
  if (found == deserializers.end()) {
    throw std::invalid_argument("No deserializer for type: " + name);
  }
  DeserializerFn converter = found->second;
  lock.unlock();
  try {
    return converter(object);
  } catch (const std::exception& e) {
    logError("Exception deserializing ", name, ", ", e.what());
    throw;
  } catch (...) {
    logError("Unknown exception deserializing ", name);
    throw;
  }
}

MessagePtr JsonSerializerImpl::deserialize(ObjectPtr&& object) {
  std::unique_lock<std::mutex> lock(mutex);
  if (object.isNull()) {
    throw Poco::NullPointerException();
  }
  const Poco::Dynamic::Var value = object->get("type");
  if (value.isEmpty()) {
    throw Poco::InvalidAccessException("Can not convert empty value.");
  }
  const std::string typeName =
      value.isString() ? value.extract<std::string>() : value.convert<std::string>();
  if (deserializers.count(typeName) != 1) {
    throw std::invalid_argument("No deserializer for type: " + typeName);
  }
  try {
    DeserializerFn converter = deserializers.at(typeName);
    lock.unlock();
    return converter(object);
  } catch (const Poco::Exception& e) {
    if (lock.owns_lock()) {
      lock.unlock();
    }
    logError("Exception deserializing ", typeName, ", ", e.message());
    throw std::invalid_argument("Parsing error for type '" + typeName + "': " + e.message());
  } catch (const std::exception& e) {
    if (lock.owns_lock()) {
      lock.unlock();
    }
    logError("Exception deserializing ", typeName, ", ", e.what());
    throw;
  } catch (...) {
    if (lock.owns_lock()) {
      lock.unlock();
    }
    logError("Unknown exception deserializing ", typeName);
    throw;
  }
}

namespace {

// Steps shared by both streamed operations: parse what the reader's stream delivers
// into one JSON object. Blocks until the publisher completes or the stream fails.
ObjectPtr parseObject(
    const std::shared_ptr<connector::reactive_streams::IStreamSubscriber>& reader) {
  // Poco's handler (object-order flag false) that also refuses wrapped-around integers.
  Poco::SharedPtr<Poco::JSON::ParseHandler> handler(new detail::CheckedParseHandler);
  Poco::JSON::Parser parser(handler);
  Poco::Dynamic::Var root = parser.parse(reader->stream());
  return root.extract<ObjectPtr>();  // Poco::BadCastException when the root is no object
}

// Subscribes a new stream reader to the publisher (held by the caller meanwhile).
std::shared_ptr<connector::reactive_streams::IStreamSubscriber> subscribeReader(
    const BytePublisher& publisher) {
  if (!publisher) {
    throw std::invalid_argument("Publisher must not be null.");
  }
  auto reader = std::make_shared<connector::reactive_streams::IStreamSubscriber>();
  publisher->subscribe(reader);
  return reader;
}

// Subscribes a collector instead, for a direct codec; same checks and failures.
std::shared_ptr<detail::ByteCollector> subscribeCollector(const BytePublisher& publisher) {
  if (!publisher) {
    throw std::invalid_argument("Publisher must not be null.");
  }
  auto collector = std::make_shared<detail::ByteCollector>();
  publisher->subscribe(collector);
  return collector;
}

// The message a direct codec reads from the collected stream: the codec of `name`, or
// of the document's "type" member when name is null, as codecFor finds it. nullptr when
// the stream is not complete yet, failed, or the converter path must decide; whatever
// happens here, the converter path then reads the same bytes.
template <typename CodecFor>
MessagePtr readDirect(detail::ByteCollector& collector, const std::string* name,
                      CodecFor&& codecFor) noexcept {
  try {
    if (!collector.completed()) {
      return nullptr;
    }
    detail::DirectDocument document(collector.pieces());
    std::shared_ptr<const DirectCodec> codec;
    if (name != nullptr) {
      codec = codecFor(*name);
    } else if (std::string typeName; document.typeName(typeName)) {
      codec = codecFor(typeName);
    }
    return codec ? document.read(*codec) : nullptr;
  } catch (...) {
    return nullptr;
  }
}

}  // namespace

Future<MessagePtr> JsonSerializerImpl::deserialize(BytePublisher publisher) {
  try {
    const std::shared_ptr<JsonSerializer> self = shared_from_this();
    // A copy on purpose: the publisher stays alive for the whole call.
    const BytePublisher keep = publisher;  // NOLINT(performance-unnecessary-copy-initialization)
    std::shared_ptr<connector::reactive_streams::IStreamSubscriber> reader;
    if (directCodecsApply()) {
      const auto collector = subscribeCollector(keep);
      MessagePtr message = readDirect(*collector, nullptr, [this](const std::string& typeName) {
        return directCodecFor(typeName);
      });
      if (message) {
        return makeReadyFuture<MessagePtr>(std::move(message));
      }
      reader = collector->handOver();
    } else {
      reader = subscribeReader(keep);
    }
    try {
      ObjectPtr object = parseObject(reader);
      MessagePtr message = self->deserialize(std::move(object));
      return makeReadyFuture<MessagePtr>(std::move(message));
    } catch (const Poco::Exception& e) {
      throw std::invalid_argument("Parsing error: " + e.message());
    } catch (const std::exception& e) {
      throw std::invalid_argument(std::string("Error while parsing: ") + e.what());
    } catch (...) {
      throw std::invalid_argument("Unknown error while parsing");
    }
  } catch (...) {
    return makeFailedFuture<MessagePtr>(std::current_exception());
  }
}

Future<MessagePtr> JsonSerializerImpl::deserialize(const std::string& name,
                                                   BytePublisher publisher) {
  try {
    const std::shared_ptr<JsonSerializer> self = shared_from_this();
    // A copy on purpose: the publisher stays alive for the whole call.
    const BytePublisher keep = publisher;  // NOLINT(performance-unnecessary-copy-initialization)
    std::shared_ptr<connector::reactive_streams::IStreamSubscriber> reader;
    std::shared_ptr<const DirectCodec> codec;
    if (directCodecsApply()) {
      codec = directCodecFor(name);
    }
    if (codec) {
      const auto collector = subscribeCollector(keep);
      MessagePtr message =
          readDirect(*collector, &name, [&codec](const std::string&) { return codec; });
      if (message) {
        return makeReadyFuture<MessagePtr>(std::move(message));
      }
      reader = collector->handOver();
    } else {
      reader = subscribeReader(keep);
    }
    try {
      ObjectPtr object = parseObject(reader);
      MessagePtr message = self->deserialize(name, std::move(object));
      return makeReadyFuture<MessagePtr>(std::move(message));
    } catch (const Poco::Exception& e) {
      throw std::invalid_argument("Parsing error for type '" + name + "': " + e.message());
    } catch (...) {
      // Deliberately without the text of standard exceptions.
      throw std::invalid_argument("Unknown error while parsing '" + name + "'");
    }
  } catch (...) {
    return makeFailedFuture<MessagePtr>(std::current_exception());
  }
}

}  // namespace connector::json
