// DocumentGenerator: random JSON documents for a declared type, made from its JSON
// Schema, and broken ones made from those: the inputs of the differential tests of the
// direct codec.
//
//   DocumentGenerator generate(seed);
//   std::string valid = generate.document(*type.schema(), 0.0);   // the reader accepts it
//   std::string bent = generate.document(*type.schema(), 0.05);   // ~5% of values mutated
//   std::string cut = generate.damaged(valid);                     // bytes cut, flipped, ...
//
// Valid documents cover every member kind the schemas describe, members in any order,
// absent and null optionals, unknown members of every kind, escapes and non-ASCII text,
// whitespace between tokens, and the number edges: -0, 1e308, 5e-324, 2^53+1, the limits
// of every integer width, 0.1, 1e21, 1e-7, long mantissas. Mutations put in a value of
// another kind, integers one past their limits, numbers no double holds, integers past 64
// bits, broken strings (bytes that are not UTF-8, lone surrogates, bad escapes, control
// characters), members given twice, unknown members, nesting to 127..200 levels, a
// "type" member of every JSON kind, and bad literals.
//
// The schema keywords of declared members' options and kinds are followed: "minimum" and
// "maximum" (numbers and integers), quoted integers (["integer","string"]), strings with
// "format": "date-time", "contentEncoding": "base64", a duration's or a member's
// "pattern", "minLength" and "maxLength"; "minItems", "maxItems" and "uniqueItems";
// "oneOf" (a tagged union, its tag first most of the time); a member and its alias
// ("allOf"), one of the two. Mutations add: a set's item repeated, a member given under
// both names, and texts that are nearly a time, a duration, base64 or a quoted integer.
//
// Thread-safety: one generator per thread.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include <Poco/JSON/Object.h>

namespace connector::testing {

class DocumentGenerator {
 public:
  explicit DocumentGenerator(std::uint64_t seed) : random(seed) {}

  // A document for schema; each value is replaced by a mutation with probability mutate.
  std::string document(const Poco::JSON::Object& schema, double mutate);

  // text damaged at the byte level: cut short, a byte dropped, changed or inserted, or a
  // piece repeated.
  std::string damaged(const std::string& text);

  // Any JSON value, nested up to depth levels.
  std::string anyValue(int depth);

  std::uint64_t below(std::uint64_t bound) { return bound == 0 ? 0 : random() % bound; }
  bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(random) < p; }

 private:
  void value(const Poco::JSON::Object& schema, std::string& out, int depth);
  void object(const Poco::JSON::Object& schema, std::string& out, int depth);
  void mutation(const Poco::JSON::Object& schema, std::string& out, int depth);
  void space(std::string& out);
  std::string integer(const Poco::JSON::Object& schema);
  std::string number();
  std::string boundedNumber(const Poco::JSON::Object& schema);
  std::string string(const Poco::JSON::Object& schema);
  std::string dateTime();
  std::string durationText();
  std::string base64();
  std::string text();
  std::string key();

  std::mt19937_64 random;
  double mutate = 0;
};

}  // namespace connector::testing
