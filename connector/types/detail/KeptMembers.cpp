#include "connector/types/detail/KeptMembers.hpp"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>

#include "connector/types/detail/JsonText.hpp"
#include "connector/types/detail/MemberError.hpp"

namespace connector::json::detail {

std::string keptText(const Poco::Dynamic::Var& value) {
  std::ostringstream out;
  Poco::JSON::Stringifier::condense(value, out);
  return out.str();
}

void appendKeptValue(DirectReader& in, std::string& out) {
  switch (in.peek()) {
    case DirectKind::Null:
      in.takeNull();
      out.append("null");
      return;
    case DirectKind::Boolean:
      out.append(in.readBool() ? "true" : "false");
      return;
    case DirectKind::Integer: {
      const DirectInteger n = in.readInteger();
      if (n.isNegative) {
        appendInteger(out, n.negative);
      } else {
        appendInteger(out, n.nonNegative);
      }
      return;
    }
    case DirectKind::Number:
      appendNumber(out, in.readNumber());
      return;
    case DirectKind::String:
      appendQuoted(out, in.readString());
      return;
    case DirectKind::Array: {
      in.enterArray();
      out.push_back('[');
      bool first = true;
      while (in.nextItem()) {
        if (!first) out.push_back(',');
        first = false;
        appendKeptValue(in, out);
      }
      out.push_back(']');
      return;
    }
    case DirectKind::Object:
      break;
  }
  // Poco's objects keep their members sorted by name: gather, then sort.
  in.enterObject();
  std::vector<std::pair<std::string, std::string>> members;
  std::string_view key;
  while (in.nextMember(key)) {
    members.emplace_back(std::string(key), std::string());
    appendKeptValue(in, members.back().second);
  }
  std::sort(members.begin(), members.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  out.push_back('{');
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (i > 0) {
      if (members[i].first == members[i - 1].first) decline();  // Poco keeps the last one
      out.push_back(',');
    }
    appendQuoted(out, members[i].first);
    out.push_back(':');
    out.append(members[i].second);
  }
  out.push_back('}');
}

Poco::Dynamic::Var keptValue(const std::string& text) {
  // The parser takes an object or an array at the root: the value goes into an array.
  try {
    Poco::JSON::Parser parser;
    const Poco::Dynamic::Var root = parser.parse("[" + text + "]");
    const auto& array = root.extract<Poco::JSON::Array::Ptr>();
    if (!array.isNull() && array->size() == 1) return array->get(0);
  } catch (const Poco::Exception&) {
  }
  throw MemberError(": the kept text is not JSON");
}

void appendKeptText(std::string& out, const std::string& text) {
  out.append(keptText(keptValue(text)));
}

void throwDeclaredAndKept() { throw MemberError(" is declared and also kept as unknown"); }

}  // namespace connector::json::detail
