// connector::json::detail::DeclaredDirectCodec<T>: the direct codec of a declared message
// type (json::MessageType<T>), over the same member description as its converters, so
// that both write and read the same members by the same rules.
//
//   auto codec = std::make_shared<DeclaredDirectCodec<Order>>(description);
//   serializer.registerType("shop/Order", typeid(Order), toJson, fromJson, codec);
//
// It declines (false, nullptr) wherever the converters would throw or might decide
// otherwise, and reading altogether when the description reads members in declaration
// order only (ObjectDescription::readsInAnyOrder).
//
// Thread-safety: immutable; any number of threads at once.
#pragma once

#include <memory>
#include <string>
#include <typeinfo>
#include <utility>

#include "connector/host/Message.hpp"
#include "connector/serializer/DirectCodec.hpp"
#include "connector/serializer/detail/DirectReader.hpp"
#include "connector/types/detail/ObjectDescription.hpp"

namespace connector::json::detail {

template <typename T>
class DeclaredDirectCodec final : public DirectCodec {
 public:
  explicit DeclaredDirectCodec(std::shared_ptr<const ObjectDescription<T>> declared)
      : declared(std::move(declared)), reads(this->declared->readsInAnyOrder()) {}

  bool write(const connector::Message& message, const std::string* typeName,
             std::string& out) const noexcept override {
    try {
      // The converter's own cast: exact class first, then any class derived from T.
      const T* value = typeid(message) == typeid(T) ? static_cast<const T*>(&message)
                                                    : dynamic_cast<const T*>(&message);
      if (value == nullptr) return false;
      declared->writeText(*value, out, typeName);
      return true;
    } catch (...) {
      return false;
    }
  }

  std::unique_ptr<connector::Message> read(DirectReader& in) const noexcept override {
    if (!reads) return nullptr;
    try {
      auto message = std::make_unique<T>();
      in.enterObject();
      declared->readDirect(in, *message, &typeMemberName());
      return message;
    } catch (...) {
      return nullptr;
    }
  }

 private:
  std::shared_ptr<const ObjectDescription<T>> declared;
  bool reads;  // false: every document goes to the converters
};

}  // namespace connector::json::detail
