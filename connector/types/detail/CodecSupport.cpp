#include <string>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "connector/types/detail/BytesCodec.hpp"
#include "connector/types/detail/Codecs.hpp"
#include "connector/types/detail/ContainerCodecs.hpp"
#include "connector/types/detail/DescribedCodecs.hpp"
#include "connector/types/detail/VariantCodec.hpp"

namespace connector::json::detail {

bool arrayView(const Var& json, ArrayView& view) {
  if (json.isEmpty()) return false;
  const std::vector<Var>* values = nullptr;
  std::size_t size = 0;
  const Var* first = nullptr;
  if (json.type() == typeid(Poco::JSON::Array::Ptr)) {
    const Poco::JSON::Array::Ptr& array = json.extract<Poco::JSON::Array::Ptr>();
    if (array.isNull()) return false;
    size = array->size();
    first = size == 0 ? nullptr : &*array->begin();
  } else if (json.type() == typeid(Poco::JSON::Array)) {
    const auto& array = json.extract<Poco::JSON::Array>();
    size = array.size();
    first = size == 0 ? nullptr : &*array.begin();
  } else if (json.type() == typeid(std::vector<Var>)) {
    values = &json.extract<std::vector<Var>>();
    size = values->size();
    first = values->data();
  } else {
    return false;
  }
  view.first = first;
  view.last = first == nullptr ? nullptr : first + size;
  return true;
}

const Poco::JSON::Object* objectOf(const Var& json) {
  if (json.isEmpty()) return nullptr;
  if (json.type() == typeid(Poco::JSON::Object::Ptr)) {
    return json.extract<Poco::JSON::Object::Ptr>().get();
  }
  if (json.type() == typeid(Poco::JSON::Object)) return &json.extract<Poco::JSON::Object>();
  return nullptr;
}

void throwDuplicateItem() { throw MemberError(": duplicate item"); }

void throwItemCount(std::size_t expected, std::size_t count) {
  throw MemberError(": expected " + std::to_string(expected) + " items, got " +
                    std::to_string(count));
}

void throwUntagged(std::size_t index) {
  throw MemberError(": alternative " + std::to_string(index) + " of the variant has no tag");
}

void throwUnknownTag(const std::string& tag, const std::vector<std::string>& tags) {
  throwNotOneOf("\"" + tag + "\"", tags);
}

void throwNotBase64() { throw MemberError(": not base64"); }

void throwNotOneOf(const std::string& given, const std::vector<std::string>& names) {
  std::string text = ": " + given + " is not one of ";
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += ", ";
    text += '"';
    text += names[i];
    text += '"';
  }
  throw MemberError(text);
}

}  // namespace connector::json::detail
