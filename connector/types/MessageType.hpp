// connector::json::MessageType<T>: a message type declared once, from which come both
// converters of the serializer's registry and a JSON Schema of its wire form.
//
//   json::MessageType<Order> order("shop/Order");
//   order.field("id", &Order::id)
//       .field("items", &Order::items, item)        // item: a json::Struct<Item>
//       .field("note", &Order::note)                // std::optional<std::string>
//       .field("priority", &Order::priority, priority)   // a json::Enum<Priority>
//       .field("weights", &Order::weights);         // std::map<std::string, double>
//   order.rejectUnknownMembers();                   // optional
//   order.registerWith(*serializer);                // registerType("shop/Order", ...)
//   Poco::JSON::Object::Ptr schema = order.schema();
//
// On a JsonSerializerImpl, registerWith also puts the declaration's direct codec beside
// the converters, so that the serializer goes straight between Order and JSON text (see
// DirectCodec.hpp): the same bytes, messages, exceptions and log records, many times
// faster.
//
// Members, options (Field.hpp), tagged unions (Variant.hpp), kept unknown members,
// writing and reading follow json::Struct (Struct.hpp), with two additions: the
// serializer adds the member "type" when writing, and "type" is never an unknown member
// when reading (nor kept). A reading error reaches the serializer as a Poco::DataFormatException
// whose message() is one of the texts listed in Struct.hpp, so deserialize(object) throws
// std::invalid_argument "Parsing error for type 'shop/Order': member \"/items/0/quantity\":
// 3000000000 is out of range", for instance. The streamed deserialize by "type" adds its
// own "Error while parsing: " in front (the HTTP gateway's 400 body carries that text).
//
// Schema: the whole wire object, "type" included (required, "const" the type's name);
// integer members carry "minimum" and "maximum" of their type, enums "enum" with their
// names, optionals allow absence and null, and "additionalProperties": false comes exactly
// when rejectUnknownMembers() was called; the options and newer kinds add theirs (quoted
// integers: "type":["integer","string"] with a pattern of exactly the digits in range;
// times: "format":"date-time" and a pattern; durations and bytes: a pattern, bytes also
// "contentEncoding":"base64"; sets "uniqueItems"; arrays minItems = maxItems; variants
// "oneOf" with each tag's "const"; aliases a property each, "one of the two" where
// required and "not both"; defaulted members "default"; floats exclusive bounds at the
// point where they would round to an infinity). A document validates against it exactly
// when the reader accepts it, except that: an integer written with a fraction or an
// exponent (1.0, 1e2) is an integer to JSON Schema but refused by the reader ("expected
// an integer, got a number"); the JSON parser refuses integer literals outside [-2^63,
// 2^64-1] wherever they stand, even where a schema allows any number; it reads
// -9223372036854775809 as -9223372036854775808 (so an int64_t member takes it); a time or
// duration beyond what its type holds matches its pattern; and a validator whose "$"
// also matches before a final line feed (Python's) accepts such a string where the reader
// (ECMAScript's "$") does not.
//
// Thread-safety: declare on one thread; afterwards the const operations, and the
// converters they hand out, may run on any number of threads at once. The converters
// keep the members declared when serializer(), deserializer() or registerWith() was
// called.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>
#include <Poco/SharedPtr.h>

#include "connector/host/Message.hpp"
#include "connector/serializer/JsonSerializer.hpp"
#include "connector/serializer/JsonSerializerImpl.hpp"
#include "connector/types/Enum.hpp"
#include "connector/types/Field.hpp"
#include "connector/types/Struct.hpp"
#include "connector/types/UnknownMembers.hpp"
#include "connector/types/Variant.hpp"
#include "connector/types/detail/Codecs.hpp"
#include "connector/types/detail/DeclaredDirectCodec.hpp"
#include "connector/types/detail/DescribedCodecs.hpp"
#include "connector/types/detail/MemberError.hpp"
#include "connector/types/detail/ObjectDescription.hpp"

namespace connector::json {

template <typename T>
class MessageType {
  static_assert(std::is_base_of_v<connector::Message, T>,
                "json::MessageType describes a class derived from connector::Message");
  static_assert(std::is_default_constructible_v<T>, "a message type is default-constructible");

 public:
  // A message type registered under typeName (e.g. "shop/Order").
  explicit MessageType(std::string typeName) : typeName(std::move(typeName)) {}

  // Declares a member, as json::Struct::field (options: see Field.hpp). Throws
  // std::invalid_argument "member \"<name>\" is declared twice", "member \"type\" is
  // reserved for the type name" (the serializer writes the type's name there; an alias
  // "type" too) and `member "<name>": <option> does not apply to its type`.
  template <typename M, typename C>
  MessageType& field(std::string name, M C::*member) {
    return add<M, C>(std::move(name), member, detail::PlainCodec<M>{}, nullptr);
  }
  template <typename M, typename C>
  MessageType& field(std::string name, M C::*member, const Field& options) {
    return add<M, C>(std::move(name), member, detail::PlainCodec<M>{}, &options);
  }

  // The same for a member whose innermost type is described by `described`.
  template <typename M, typename C, typename D,
            typename = std::enable_if_t<!std::is_same_v<D, Field>>>
  MessageType& field(std::string name, M C::*member, const D& described) {
    return add<M, C>(std::move(name), member, detail::DescribedCodecOf<M, D>::make(described),
                     nullptr);
  }
  template <typename M, typename C, typename D>
  MessageType& field(std::string name, M C::*member, const D& described, const Field& options) {
    return add<M, C>(std::move(name), member, detail::DescribedCodecOf<M, D>::make(described),
                     &options);
  }

  // Makes a member that is not declared (other than "type") a reading error; puts
  // "additionalProperties": false in the schema. Throws std::invalid_argument "unknown
  // members are either kept or refused, not both" after keepUnknownMembers.
  MessageType& rejectUnknownMembers() {
    members.rejectUnknownMembers();
    return *this;
  }

  // Keeps the members that are not declared (other than "type") in `into`, as
  // json::Struct::keepUnknownMembers; a kept "type" is refused when writing like a
  // declared name. Throws std::invalid_argument "unknown members are either kept or
  // refused, not both" after rejectUnknownMembers.
  template <typename C>
  MessageType& keepUnknownMembers(UnknownMembers C::*into) {
    members.keepUnknownMembers(into);
    return *this;
  }

  const std::string& name() const noexcept { return typeName; }

  // The converter from a T to its JSON object (without "type"). It throws
  // std::invalid_argument `member "<path>": ...` for a value JSON cannot hold (an enum
  // value without a name, an infinity or NaN), Poco::NullPointerException for a null
  // message and std::bad_cast for a message that is not a T.
  SerializerFn serializer() const { return serializerOf(described()); }

  // The converter from a JSON object to a new T. It throws Poco::DataFormatException
  // with one of the reading texts, Poco::NullPointerException for a null object.
  DeserializerFn deserializer() const { return deserializerOf(described()); }

  // The direct codec of the members declared so far (see DirectCodec.hpp), as
  // registerWith puts it beside the converters of a JsonSerializerImpl.
  std::shared_ptr<const DirectCodec> directCodec() const {
    return std::make_shared<const detail::DeclaredDirectCodec<T>>(described());
  }

  // Registers name() for T on serializer, replacing whatever converters the name had.
  // On a JsonSerializerImpl (the class itself, not one derived from it) a direct codec
  // goes beside the converters: serialize, serializeValue and the streamed deserialize
  // then go straight between T and JSON text, with the same results as the converters
  // (which still decide every error). On any other serializer:
  // serializer.registerType(name(), typeid(T), serializer(), deserializer()). Locks the
  // serializer's registry briefly.
  void registerWith(JsonSerializer& serializer) const {
    const auto declared = described();
    if (typeid(serializer) == typeid(JsonSerializerImpl)) {
      static_cast<JsonSerializerImpl&>(serializer)
          .registerType(typeName, typeid(T), serializerOf(declared), deserializerOf(declared),
                        std::make_shared<const detail::DeclaredDirectCodec<T>>(declared));
      return;
    }
    serializer.registerType(typeName, typeid(T), serializerOf(declared), deserializerOf(declared));
  }

  // JSON Schema (draft 2020-12) of the serialized form, "type" included.
  Poco::JSON::Object::Ptr schema() const {
    detail::ObjectSchemaOptions options;
    options.title = &typeName;
    options.constName = &detail::typeMemberName();
    options.constValue = &typeName;
    options.withDraft = true;
    return members.schema(options);
  }

 private:
  using Description = std::shared_ptr<const detail::ObjectDescription<T>>;

  // A copy of the members declared so far, shared by the converters made from it.
  Description described() const {
    return std::make_shared<const detail::ObjectDescription<T>>(members);
  }

  static SerializerFn serializerOf(Description declared) {
    return [declared = std::move(declared)](const std::unique_ptr<connector::Message>& message) {
      if (!message) throw Poco::NullPointerException();
      const connector::Message& held = *message;
      const T& value =
          typeid(held) == typeid(T) ? static_cast<const T&>(held) : dynamic_cast<const T&>(held);
      try {
        return declared->write(value, &detail::typeMemberName());
      } catch (const detail::MemberError& e) {
        throw std::invalid_argument(e.message());
      }
    };
  }

  static DeserializerFn deserializerOf(Description declared) {
    return [declared = std::move(declared)](
               Poco::SharedPtr<Poco::JSON::Object> object) -> std::unique_ptr<connector::Message> {
      if (object.isNull()) throw Poco::NullPointerException();
      auto message = std::make_unique<T>();
      try {
        declared->read(*object, *message, &detail::typeMemberName());
      } catch (const detail::MemberError& e) {
        throw Poco::DataFormatException(e.message());
      }
      return message;
    };
  }

  template <typename M, typename C, typename Codec>
  MessageType& add(std::string name, M C::*member, Codec codec, const Field* options) {
    static_assert(std::is_base_of_v<C, T>, "the member belongs to another class");
    refuseTypeMember(name);
    if (options != nullptr && options->aliasOf()) refuseTypeMember(*options->aliasOf());
    members.template add<C>(std::move(name), member, std::move(codec), options);
    return *this;
  }

  static void refuseTypeMember(const std::string& name) {
    if (name == detail::typeMemberName()) {
      throw std::invalid_argument("member \"type\" is reserved for the type name");
    }
  }

  std::string typeName;
  detail::ObjectDescription<T> members;
};

}  // namespace connector::json
