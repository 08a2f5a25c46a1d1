#include "connector/types/detail/ValueKinds.hpp"

#include <cmath>
#include <typeinfo>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "connector/types/detail/JsonText.hpp"
#include "connector/types/detail/MemberError.hpp"

namespace connector::json::detail {

Kind kindOf(const Poco::Dynamic::Var& value) {
  if (value.isEmpty()) return Kind::Null;
  const std::type_info& type = value.type();
  if (type == typeid(Poco::JSON::Object::Ptr)) {
    return value.extract<Poco::JSON::Object::Ptr>().isNull() ? Kind::Null : Kind::Object;
  }
  if (type == typeid(Poco::JSON::Array::Ptr)) {
    return value.extract<Poco::JSON::Array::Ptr>().isNull() ? Kind::Null : Kind::Array;
  }
  if (type == typeid(std::string)) return Kind::String;
  if (type == typeid(bool)) return Kind::Boolean;
  if (type == typeid(Poco::JSON::Object)) return Kind::Object;
  if (type == typeid(Poco::JSON::Array) || type == typeid(std::vector<Poco::Dynamic::Var>)) {
    return Kind::Array;
  }
  if (value.isString()) return Kind::String;
  if (value.isInteger()) return Kind::Integer;
  if (value.isNumeric()) return Kind::Number;
  return Kind::String;
}

const char* kindName(Kind kind) {
  switch (kind) {
    case Kind::Null:
      return "null";
    case Kind::Boolean:
      return "a boolean";
    case Kind::Integer:
      return "an integer";
    case Kind::Number:
      return "a number";
    case Kind::String:
      return "a string";
    case Kind::Array:
      return "an array";
    case Kind::Object:
      return "an object";
  }
  return "a value";
}

void throwKindMismatch(Kind expected, const Poco::Dynamic::Var& value) {
  throw MemberError(std::string(": expected ") + kindName(expected) + ", got " +
                    kindName(kindOf(value)));
}

IntegerValue integerValue(const Poco::Dynamic::Var& value) {
  if (kindOf(value) != Kind::Integer) throwKindMismatch(Kind::Integer, value);
  IntegerValue n;
  if (value.isSigned()) {
    const auto signedValue = value.convert<Poco::Int64>();
    n.isNegative = signedValue < 0;
    if (n.isNegative) {
      n.negative = signedValue;
    } else {
      n.nonNegative = static_cast<std::uint64_t>(signedValue);
    }
  } else {
    n.nonNegative = value.convert<Poco::UInt64>();
  }
  return n;
}

void throwOutOfRange(std::int64_t value) {
  throw MemberError(": " + std::to_string(value) + " is out of range");
}

void throwOutOfRange(std::uint64_t value) {
  throw MemberError(": " + std::to_string(value) + " is out of range");
}

void throwOutOfRange(double value) {
  std::string text = ": ";
  appendNumber(text, value);
  throw MemberError(text + " is out of range");
}

void throwNotUtf8() { throw MemberError(": the string is not valid UTF-8"); }

void throwNotFinite(double value) {
  const char* text = std::isnan(value) ? "nan" : (value < 0 ? "-inf" : "inf");
  throw MemberError(std::string(": ") + text + " is not a finite number");
}

const std::string& stringValue(const Poco::Dynamic::Var& value, std::string& conversion) {
  if (!value.isEmpty() && value.type() == typeid(std::string)) {
    return value.extract<std::string>();
  }
  if (kindOf(value) != Kind::String) throwKindMismatch(Kind::String, value);
  conversion = value.convert<std::string>();
  return conversion;
}

}  // namespace connector::json::detail
