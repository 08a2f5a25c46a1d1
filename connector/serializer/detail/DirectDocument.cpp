#include "connector/serializer/detail/DirectDocument.hpp"

#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <simdjson.h>

#include "connector/serializer/detail/DirectReader.hpp"

namespace connector::json::detail {

static_assert(DirectDocument::kPadding == simdjson::SIMDJSON_PADDING,
              "the padding promised to callers is simdjson's");

const char* DirectDecline::what() const noexcept { return "declined by the direct reader"; }

void decline() { throw DirectDecline(); }

DirectReader::~DirectReader() = default;

namespace {

namespace od = simdjson::ondemand;

// Poco's parser refuses containers nested deeper than this (the root counts as 1).
constexpr int kMaxDepth = 128;

// The name of a member as Poco's parser reads it; false when Poco would read it
// otherwise. Most names hold no escape: they are taken as they stand in the text,
// without a copy.
bool memberName(od::field& field, std::string_view& name) {
  const char* const raw = field.key().raw();
  const char* end = raw;
  while (*end != '"' && *end != '\\') ++end;  // the text holds the closing quote
  if (*end == '"') {
    name = std::string_view(raw, static_cast<std::size_t>(end - raw));
    return true;
  }
  if (field.unescaped_key().get(name) != simdjson::SUCCESS) return false;
  // Poco's parser cuts a member name at its first NUL (it takes the name as a C string).
  return name.find('\0') == std::string_view::npos;
}

// A DirectReader over an On-Demand document: a stack of the objects and arrays entered,
// and the value that the next read takes.
class SimdjsonReader final : public DirectReader {
 public:
  void start(od::document& root) {
    document = &root;
    frames.clear();
    atRoot = true;
  }

  bool finished() const noexcept { return frames.empty() && !atRoot; }

  void enterObject() override {
    Frame frame;
    frame.isObject = true;
    od::object object;
    if (atRoot) {
      if (document->get_object().get(object) != simdjson::SUCCESS) decline();
      atRoot = false;
    } else if (current.get_object().get(object) != simdjson::SUCCESS) {
      decline();
    }
    if (object.begin().get(frame.members) != simdjson::SUCCESS) decline();
    if (object.end().get(frame.membersEnd) != simdjson::SUCCESS) decline();
    push(frame);
  }

  bool nextMember(std::string_view& key) override {
    Frame& frame = top(true);
    if (frame.started) {
      ++frame.members;
    } else {
      frame.started = true;
    }
    if (!(frame.members != frame.membersEnd)) {
      frames.pop_back();
      return false;
    }
    od::field field;
    if ((*frame.members).get(field) != simdjson::SUCCESS) decline();
    if (!memberName(field, key)) decline();
    current = field.value();
    return true;
  }

  void enterArray() override {
    if (atRoot) decline();  // the root of a message is an object
    Frame frame;
    frame.isObject = false;
    od::array array;
    if (current.get_array().get(array) != simdjson::SUCCESS) decline();
    if (array.begin().get(frame.items) != simdjson::SUCCESS) decline();
    if (array.end().get(frame.itemsEnd) != simdjson::SUCCESS) decline();
    push(frame);
  }

  bool nextItem() override {
    Frame& frame = top(false);
    if (frame.started) {
      ++frame.items;
    } else {
      frame.started = true;
    }
    if (!(frame.items != frame.itemsEnd)) {
      frames.pop_back();
      return false;
    }
    if ((*frame.items).get(current) != simdjson::SUCCESS) decline();
    return true;
  }

  DirectKind peek() override {
    notAtRoot();
    od::json_type type;
    if (current.type().get(type) != simdjson::SUCCESS) decline();
    switch (type) {
      case od::json_type::object:
        return DirectKind::Object;
      case od::json_type::array:
        return DirectKind::Array;
      case od::json_type::string:
        return DirectKind::String;
      case od::json_type::boolean:
        return DirectKind::Boolean;
      case od::json_type::null:
        return DirectKind::Null;
      case od::json_type::number: {
        od::number_type kind;
        if (current.get_number_type().get(kind) != simdjson::SUCCESS) decline();
        return kind == od::number_type::floating_point_number ? DirectKind::Number
                                                              : DirectKind::Integer;
      }
    }
    decline();
  }

  bool takeNull() override {
    notAtRoot();
    bool isNull = false;
    if (current.is_null().get(isNull) != simdjson::SUCCESS) decline();
    return isNull;
  }

  bool readBool() override {
    notAtRoot();
    bool value = false;
    if (current.get_bool().get(value) != simdjson::SUCCESS) decline();
    return value;
  }

  DirectInteger readInteger() override {
    const od::number number = readAnyNumber();
    DirectInteger value;
    switch (number.get_number_type()) {
      case od::number_type::signed_integer: {
        const std::int64_t n = number.get_int64();
        value.isNegative = n < 0;
        if (value.isNegative) {
          // Poco's parser takes a negative integer's magnitude through a double, so
          // beyond 2^53 it reads the nearest double's value: -9007199254740993 becomes
          // -9007199254740992 (and -9223372036854775807 becomes -9223372036854775808).
          const std::uint64_t magnitude = static_cast<std::uint64_t>(-(n + 1)) + 1;
          value.negative = static_cast<std::int64_t>(-static_cast<double>(magnitude));
        } else {
          value.nonNegative = static_cast<std::uint64_t>(n);
        }
        return value;
      }
      case od::number_type::unsigned_integer:
        value.nonNegative = number.get_uint64();
        return value;
      case od::number_type::floating_point_number:
        break;
    }
    decline();
  }

  double readNumber() override {
    const od::number number = readAnyNumber();
    switch (number.get_number_type()) {
      case od::number_type::signed_integer:
        // Poco reads an integer literal as an integer first: "-0" is 0, not -0.0.
        return static_cast<double>(number.get_int64());
      case od::number_type::unsigned_integer:
        return static_cast<double>(number.get_uint64());
      case od::number_type::floating_point_number:
        break;
    }
    return number.get_double();
  }

  std::string_view readString() override {
    notAtRoot();
    std::string_view text;
    if (current.get_string().get(text) != simdjson::SUCCESS) decline();
    return text;
  }

  void skipValue() override {
    notAtRoot();
    od::json_type type;
    if (current.type().get(type) != simdjson::SUCCESS) decline();
    switch (type) {
      case od::json_type::object: {
        enterObject();
        std::string_view key;
        while (nextMember(key)) skipValue();
        return;
      }
      case od::json_type::array:
        enterArray();
        while (nextItem()) skipValue();
        return;
      case od::json_type::number:
        readAnyNumber();
        return;
      case od::json_type::string:
        readString();
        return;
      case od::json_type::boolean:
        readBool();
        return;
      case od::json_type::null:
        if (!takeNull()) decline();
        return;
    }
    decline();
  }

 private:
  struct Frame {
    bool isObject = true;
    bool started = false;
    od::object_iterator members;
    od::object_iterator membersEnd;
    od::array_iterator items;
    od::array_iterator itemsEnd;
  };

  void notAtRoot() const {
    if (atRoot) decline();
  }

  void push(const Frame& frame) {
    if (static_cast<int>(frames.size()) + 1 > kMaxDepth) decline();
    frames.push_back(frame);
  }

  Frame& top(bool object) {
    if (frames.empty() || frames.back().isObject != object) decline();
    return frames.back();
  }

  // Any number Poco's parser takes: integer literals within 64 bits (simdjson refuses
  // the longer ones, which Poco refuses too), other literals to a finite double. A
  // literal whose digits and point before the exponent are more than 19 characters is
  // left to Poco: simdjson 3.0 reads some of those wrongly (it takes them on a slower
  // path that is not always right).
  od::number readAnyNumber() {
    notAtRoot();
    od::number number;
    if (current.get_number().get(number) != simdjson::SUCCESS) decline();
    if (number.get_number_type() == od::number_type::floating_point_number) {
      const std::string_view token = current.raw_json_token();
      if (token.size() > kLongestMantissa && mantissaLength(token) > kLongestMantissa) decline();
    }
    return number;
  }

  static constexpr std::size_t kLongestMantissa = 19;

  // The characters of a number literal from its first digit to its exponent.
  static std::size_t mantissaLength(std::string_view token) {
    std::size_t length = 0;
    for (const char c : token) {
      if ((c >= '0' && c <= '9') || c == '.') {
        ++length;
      } else if (c != '-') {
        break;  // the exponent, or the end of the literal
      }
    }
    return length;
  }

  od::document* document = nullptr;
  od::value current;
  bool atRoot = true;
  std::vector<Frame> frames;
};

}  // namespace

struct DirectDocument::State {
  od::parser parser;
  std::string padded;  // the padded copy of a document that came in several pieces
  od::document document;
  SimdjsonReader reader;
  bool parsed = false;  // iterate() succeeded
  bool busy = false;    // a DirectDocument of this thread is using it
};

DirectDocument::DirectDocument(const char* data, std::size_t size, std::size_t capacity) {
  acquire(size);
  parse(data, size, capacity);
}

DirectDocument::DirectDocument(const std::vector<common::DataBuffer>& pieces) {
  std::size_t size = 0;
  for (const auto& piece : pieces) size += piece.size;
  acquire(size);
  if (pieces.size() == 1 && pieces.front().capacity - pieces.front().size >= kPadding) {
    const common::DataBuffer& only = pieces.front();
    parse(reinterpret_cast<const char*>(only.data), only.size, only.capacity);
    return;
  }
  std::string& padded = state->padded;
  padded.resize(size + kPadding);
  char* out = padded.data();
  for (const auto& piece : pieces) {
    if (piece.size > 0) std::memcpy(out, piece.data, piece.size);
    out += piece.size;
  }
  parse(padded.data(), size, padded.size());
}

void DirectDocument::acquire(std::size_t size) {
  thread_local State reused;
  if (!reused.busy && size <= kReusedCapacity) {
    state = &reused;
    ownState = false;
  } else {
    state = new State;
    ownState = true;
  }
  state->busy = true;
}

void DirectDocument::parse(const char* data, std::size_t size, std::size_t capacity) {
  state->parsed =
      capacity >= size + kPadding &&
      state->parser.iterate(data, size, capacity).get(state->document) == simdjson::SUCCESS;
}

DirectDocument::~DirectDocument() {
  if (ownState) {
    delete state;
  } else {
    state->busy = false;
  }
}

bool DirectDocument::typeName(std::string& name) {
  if (!state->parsed) return false;
  state->document.rewind();
  // Only the keys and the "type" value are looked at here; read() checks every value.
  od::object object;
  if (state->document.get_object().get(object) != simdjson::SUCCESS) return false;
  int found = 0;
  for (auto member : object) {
    od::field field;
    if (std::move(member).get(field) != simdjson::SUCCESS) return false;
    std::string_view key;
    if (!memberName(field, key)) return false;
    if (key != "type") continue;
    if (++found > 1) return false;
    std::string_view text;
    if (field.value().get_string().get(text) != simdjson::SUCCESS) return false;
    name.assign(text);
  }
  return found == 1;
}

std::unique_ptr<connector::Message> DirectDocument::read(const DirectCodec& codec) {
  if (!state->parsed) return nullptr;
  state->document.rewind();
  SimdjsonReader& in = state->reader;
  in.start(state->document);
  std::unique_ptr<connector::Message> message = codec.read(in);
  if (!message || !in.finished()) return nullptr;
  // Nothing but whitespace may follow the root object.
  const char* trailing = nullptr;
  if (state->document.current_location().get(trailing) != simdjson::OUT_OF_BOUNDS) {
    return nullptr;
  }
  return message;
}

}  // namespace connector::json::detail
