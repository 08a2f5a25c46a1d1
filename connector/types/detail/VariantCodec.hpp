// connector::json::detail::VariantAlternatives<V> and VariantCodec<V>: the described
// alternatives of a std::variant (what json::Variant declares) and the codec of a member
// holding one: a JSON object whose tag member (first when written) names the
// alternative, followed by that alternative's members.
//
//   VariantAlternatives<Shape> shapes("kind");
//   shapes.add<0>("circle", circle.description());   // circle: a json::Struct<Circle>
//   VariantCodec<Shape> codec{std::make_shared<const VariantAlternatives<Shape>>(shapes)};
//   codec.write(Shape{Circle{2}});                    // {"kind":"circle","radius":2}
//
// Thread-safety: built on one thread; immutable and shared afterwards.
#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "connector/Export.hpp"
#include "connector/serializer/detail/DirectReader.hpp"
#include "connector/types/detail/JsonText.hpp"
#include "connector/types/detail/MemberError.hpp"
#include "connector/types/detail/ObjectDescription.hpp"
#include "connector/types/detail/ValueKinds.hpp"

namespace connector::json::detail {

// Throws MemberError ": alternative <index> of the variant has no tag".
[[noreturn]] CONNECTOR_API void throwUntagged(std::size_t index);

// Throws MemberError ": \"<tag>\" is not one of \"<tag>\", ..." (the tags in declaration
// order).
[[noreturn]] CONNECTOR_API void throwUnknownTag(const std::string& tag,
                                                const std::vector<std::string>& tags);

template <typename V>
class VariantAlternatives {
 public:
  explicit VariantAlternatives(std::string tagName)
      : tagName(std::move(tagName)), byIndex(std::variant_size_v<V>) {}

  // Describes alternative I under tag. Throws std::invalid_argument
  // "variant tag \"<tag>\" is given twice", "alternative <I> of the variant is described
  // twice" and "alternative \"<tag>\" declares a member named like the tag \"<name>\"".
  template <std::size_t I>
  void add(std::string tag, const ObjectDescription<std::variant_alternative_t<I, V>>& members) {
    for (const auto& given : declaredTags) {
      if (given == tag) throw std::invalid_argument("variant tag \"" + tag + "\" is given twice");
    }
    if (byIndex[I]) {
      throw std::invalid_argument("alternative " + std::to_string(I) +
                                  " of the variant is described twice");
    }
    if (members.declares(tagName)) {
      throw std::invalid_argument("alternative \"" + tag +
                                  "\" declares a member named like the tag \"" + tagName + "\"");
    }
    auto alternative = std::make_shared<AlternativeAt<I>>(tag, members);
    appendQuoted(alternative->quotedTag, tagName);
    alternative->quotedTag.push_back(':');
    appendQuoted(alternative->quotedTag, tag);
    byIndex[I] = std::move(alternative);
    declaredTags.push_back(std::move(tag));
    declaredIndexes.push_back(I);
  }

  const std::string& tag() const noexcept { return tagName; }

  Poco::Dynamic::Var write(const V& value) const {
    const Alternative& alternative = of(value);
    Poco::JSON::Object::Ptr object = new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
    object->set(tagName, alternative.tagValue);
    alternative.write(value, *object, tagName);
    return object;
  }

  void read(const Poco::Dynamic::Var& json, V& out) const {
    const Poco::JSON::Object* object = objectOf(json);
    if (object == nullptr) throwKindMismatch(Kind::Object, json);
    std::size_t chosen = 0;
    try {
      if (!object->has(tagName)) throw MemberError(" is missing");
      const Poco::Dynamic::Var given = object->get(tagName);
      std::string conversion;
      chosen = indexOf(stringValue(given, conversion));
    } catch (MemberError& e) {
      e.within(tagName);
      throw;
    }
    byIndex[chosen]->read(*object, out, tagName);
  }

  Poco::JSON::Object::Ptr schema() const {
    Poco::JSON::Array::Ptr choices = new Poco::JSON::Array;
    for (const std::size_t i : declaredIndexes) choices->add(byIndex[i]->schema(tagName));
    Poco::JSON::Object::Ptr schema = new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
    schema->set("oneOf", choices);
    return schema;
  }

  void writeText(const V& value, std::string& out) const {
    const Alternative& alternative = of(value);
    out.push_back('{');
    out.append(alternative.quotedTag);
    bool first = false;
    alternative.writeMembers(value, out, first, tagName);
    out.push_back('}');
  }

  // Reads only objects whose first member is the tag (as this library writes them); any
  // other order declines.
  void readDirect(DirectReader& in, V& out) const {
    in.enterObject();
    std::string_view key;
    if (!in.nextMember(key) || key != tagName) decline();
    const std::string_view tag = in.readString();
    for (std::size_t i = 0; i < declaredTags.size(); ++i) {
      if (declaredTags[i] == tag) {
        byIndex[declaredIndexes[i]]->readDirect(in, out, tagName);
        return;
      }
    }
    decline();
  }

  bool readsInAnyOrder() const {
    for (const auto& alternative : byIndex) {
      if (alternative && !alternative->readsInAnyOrder()) return false;
    }
    return true;
  }

 private:
  struct Alternative {
    explicit Alternative(std::string tag) : tagValue(std::move(tag)) {}
    Alternative(const Alternative&) = delete;
    Alternative& operator=(const Alternative&) = delete;
    virtual ~Alternative() = default;
    virtual void write(const V& value, Poco::JSON::Object& out, const std::string& tag) const = 0;
    virtual void read(const Poco::JSON::Object& object, V& out, const std::string& tag) const = 0;
    virtual Poco::JSON::Object::Ptr schema(const std::string& tag) const = 0;
    virtual void writeMembers(const V& value, std::string& out, bool& first,
                              const std::string& tag) const = 0;
    virtual void readDirect(DirectReader& in, V& out, const std::string& tag) const = 0;
    virtual bool readsInAnyOrder() const = 0;

    std::string tagValue;
    std::string quotedTag;  // "<tag name>":"<tag>" as the writer writes it
  };

  template <std::size_t I>
  struct AlternativeAt final : Alternative {
    using Type = std::variant_alternative_t<I, V>;
    AlternativeAt(std::string tag, const ObjectDescription<Type>& members)
        : Alternative(std::move(tag)), members(members) {}

    void write(const V& value, Poco::JSON::Object& out, const std::string& tag) const override {
      members.writeInto(std::get<I>(value), out, &tag);
    }
    void read(const Poco::JSON::Object& object, V& out, const std::string& tag) const override {
      Type& held = out.index() == I ? std::get<I>(out) : out.template emplace<I>();
      members.read(object, held, &tag);
    }
    Poco::JSON::Object::Ptr schema(const std::string& tag) const override {
      ObjectSchemaOptions options;
      options.constName = &tag;
      options.constValue = &this->tagValue;
      return members.schema(options);
    }
    void writeMembers(const V& value, std::string& out, bool& first,
                      const std::string& tag) const override {
      members.writeMembers(std::get<I>(value), out, first, &tag);
    }
    void readDirect(DirectReader& in, V& out, const std::string& tag) const override {
      Type& held = out.index() == I ? std::get<I>(out) : out.template emplace<I>();
      members.readDirect(in, held, &tag, true);
    }
    bool readsInAnyOrder() const override { return members.readsInAnyOrder(); }

    ObjectDescription<Type> members;
  };

  const Alternative& of(const V& value) const {
    const std::size_t index = value.index();
    if (index >= byIndex.size() || !byIndex[index]) throwUntagged(index);
    return *byIndex[index];
  }

  std::size_t indexOf(const std::string& tag) const {
    for (std::size_t i = 0; i < declaredTags.size(); ++i) {
      if (declaredTags[i] == tag) return declaredIndexes[i];
    }
    throwUnknownTag(tag, declaredTags);
  }

  std::string tagName;
  std::vector<std::shared_ptr<const Alternative>> byIndex;  // by the variant's index
  std::vector<std::string> declaredTags;                    // in declaration order
  std::vector<std::size_t> declaredIndexes;                 // the index of each tag
};

template <typename V>
struct VariantCodec {
  using Value = V;
  static constexpr bool optional = false;
  std::shared_ptr<const VariantAlternatives<V>> alternatives;

  Poco::Dynamic::Var write(const V& value) const { return alternatives->write(value); }
  void read(const Poco::Dynamic::Var& json, V& out) const { alternatives->read(json, out); }
  Poco::JSON::Object::Ptr schema() const { return alternatives->schema(); }
  void writeText(const V& value, std::string& out) const { alternatives->writeText(value, out); }
  void readDirect(DirectReader& in, V& out) const { alternatives->readDirect(in, out); }
  bool readsInAnyOrder() const { return alternatives->readsInAnyOrder(); }
};

}  // namespace connector::json::detail
