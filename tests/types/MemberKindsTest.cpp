// The member kinds that need no description beyond the basic ones: time points, durations,
// bytes, sets, fixed-size arrays and unordered maps, alone and nested; what each writes
// (at its edges), what it reads, and each refusal's exact text through both reading
// paths; and the two refusals of today's kinds: a float beyond float's range (reading) and
// a string that is not UTF-8 (writing).
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <connector/json.hpp>

#include "types/ReadBothWays.hpp"

namespace connector::typestest {
namespace {

using namespace std::chrono;

struct Kinds : connector::Message {
  system_clock::time_point at;
  std::optional<system_clock::time_point> maybeAt;
  milliseconds timeout{0};
  std::map<std::string, nanoseconds> legs;
  duration<std::int32_t> seconds32{0};
  std::vector<std::byte> payload;
  std::set<std::string> tags;
  std::vector<std::set<int>> groups;
  std::array<std::uint8_t, 3> rgb{};
  std::unordered_map<std::string, double> weights;
  std::string text;
  std::map<std::string, float> floats;
};

json::MessageType<Kinds> declareKinds() {
  json::MessageType<Kinds> type("test/Kinds");
  type.field("at", &Kinds::at)
      .field("maybeAt", &Kinds::maybeAt)
      .field("timeout", &Kinds::timeout)
      .field("legs", &Kinds::legs)
      .field("seconds32", &Kinds::seconds32)
      .field("payload", &Kinds::payload)
      .field("tags", &Kinds::tags)
      .field("groups", &Kinds::groups)
      .field("rgb", &Kinds::rgb)
      .field("weights", &Kinds::weights)
      .field("text", &Kinds::text)
      .field("floats", &Kinds::floats);
  return type;
}

class MemberKinds : public ::testing::Test {
 protected:
  // A document with every member at a plain value, one of them replaced.
  static std::string doc(const std::string& name = "", const std::string& value = "") {
    const std::vector<std::pair<std::string, std::string>> members = {
        {"at", R"("1970-01-01T00:00:00Z")"},
        {"timeout", R"("0s")"},
        {"legs", "{}"},
        {"seconds32", R"("0s")"},
        {"payload", R"("")"},
        {"tags", "[]"},
        {"groups", "[]"},
        {"rgb", "[0,0,0]"},
        {"weights", "{}"},
        {"text", R"("")"},
        {"floats", "{}"}};
    std::string out = R"({"type":"test/Kinds")";
    bool replaced = false;
    for (const auto& [member, given] : members) {
      out += ",\"" + member + "\":" + (member == name ? value : given);
      replaced = replaced || member == name;
    }
    if (!replaced && !name.empty()) out += ",\"" + name + "\":" + value;
    return out + "}";
  }

  const Kinds& read(const std::string& name, const std::string& value) {
    last = both.read(doc(name, value));
    return dynamic_cast<const Kinds&>(*last);
  }

  std::string written(const Kinds& value) {
    std::unique_ptr<Message> message = std::make_unique<Kinds>(value);
    return both.write(message);
  }

  // The text written for one member of a default message changed by change.
  template <typename Change>
  std::string member(const std::string& name, Change change) {
    Kinds value;
    change(value);
    const std::string text = written(value);
    const std::string key = "\"" + name + "\":";
    const std::size_t at = text.find(key);
    if (at == std::string::npos) return "(absent)";
    std::size_t end = at + key.size();
    int depth = 0;
    bool inString = false;
    for (; end < text.size(); ++end) {
      const char c = text[end];
      if (inString) {
        if (c == '\\') ++end;
        if (c == '"') inString = false;
        continue;
      }
      if (c == '"') inString = true;
      if (c == '[' || c == '{') ++depth;
      if (c == ']' || c == '}') {
        if (depth == 0) break;
        --depth;
      }
      if (c == ',' && depth == 0) break;
    }
    return text.substr(at + key.size(), end - at - key.size());
  }

  json::MessageType<Kinds> type = declareKinds();
  ReadBothWays both{type};
  std::unique_ptr<Message> last;
};

TEST_F(MemberKinds, ATimePointIsWrittenInUtcWithTheFewestFractionDigitsThatHoldIt) {
  const auto at = [&](system_clock::duration since) {
    return member("at", [&](Kinds& k) { k.at = system_clock::time_point(since); });
  };
  EXPECT_EQ(at(seconds(1795461378)), R"("2026-11-23T19:16:18Z")");
  EXPECT_EQ(at(seconds(1795461378) + milliseconds(250)), R"("2026-11-23T19:16:18.250Z")");
  EXPECT_EQ(at(seconds(1795461378) + microseconds(1)), R"("2026-11-23T19:16:18.000001Z")");
  EXPECT_EQ(at(seconds(1795461378) + nanoseconds(10)), R"("2026-11-23T19:16:18.000000010Z")");
  EXPECT_EQ(at(-nanoseconds(1)), R"("1969-12-31T23:59:59.999999999Z")");
  EXPECT_EQ(at(seconds(951782400)), R"("2000-02-29T00:00:00Z")");
  EXPECT_EQ(at(system_clock::duration::min()), R"("1677-09-21T00:12:43.145224192Z")");
  EXPECT_EQ(at(system_clock::duration::max()), R"("2262-04-11T23:47:16.854775807Z")");
  EXPECT_EQ(member("maybeAt", [](Kinds&) {}), "(absent)");
}

TEST_F(MemberKinds, ATimePointIsReadFromAnyRfc3339DateTime) {
  const auto since = [&](const std::string& text) {
    return read("at", "\"" + text + "\"").at.time_since_epoch();
  };
  EXPECT_EQ(since("2026-11-23T20:16:18+01:00"), seconds(1795461378));
  EXPECT_EQ(since("2026-11-23t19:16:18z"), seconds(1795461378));
  EXPECT_EQ(since("2026-11-23T10:46:18.5-08:30"), seconds(1795461378) + milliseconds(500));
  EXPECT_EQ(since("2026-11-23T19:16:18.123456789000Z"),
            seconds(1795461378) + nanoseconds(123456789));
  EXPECT_EQ(since("2026-11-23T19:16:60Z"), seconds(1795461420));  // a leap second: 19:17:00
  EXPECT_EQ(since("1677-09-21T00:12:43.145224192Z"), system_clock::duration::min());
  EXPECT_EQ(read("maybeAt", "null").maybeAt, std::nullopt);
}

TEST_F(MemberKinds, AnythingElseIsNotATimePoint) {
  for (const char* text :
       {"2026-11-23 19:16:18Z", "2026-11-23T19:16:18", "2026-11-23", "2026-02-29T00:00:00Z",
        "1900-02-29T00:00:00Z", "2026-13-01T00:00:00Z", "2026-11-31T00:00:00Z",
        "2026-11-23T24:00:00Z", "2026-11-23T19:60:00Z", "2026-11-23T19:16:61Z",
        "2026-11-23T19:16:18.Z", "2026-11-23T19:16:18+1:00", "2026-11-23T19:16:18+24:00",
        "2026-11-23T19:16:18+01:60", "2026-11-23T19:16:18Zx", "26-11-23T19:16:18Z", ""}) {
    EXPECT_EQ(both.refusal(doc("at", "\"" + std::string(text) + "\"")),
              std::string(R"(member "/at": ")") + text + R"(" is not an RFC 3339 date-time)");
  }
  EXPECT_EQ(both.refusal(doc("at", "1")), R"(member "/at": expected a string, got an integer)");
}

TEST_F(MemberKinds, ATimeTheClockCannotHoldExactlyIsOutOfRange) {
  for (const char* text : {"9999-12-31T23:59:59Z", "1677-09-21T00:12:43.145224191Z",
                           "2262-04-11T23:47:16.854775808Z", "2026-11-23T19:16:18.0000000001Z"}) {
    EXPECT_EQ(both.refusal(doc("at", "\"" + std::string(text) + "\"")),
              std::string(R"(member "/at": ")") + text + R"(" is out of range)");
  }
  EXPECT_EQ(both.refusal(doc("maybeAt", R"("0000-01-01T00:00:00Z")")),
            R"(member "/maybeAt": "0000-01-01T00:00:00Z" is out of range)");
}

TEST_F(MemberKinds, ADurationIsWrittenAsSecondsWithTheFewestFractionDigitsThatHoldIt) {
  EXPECT_EQ(member("timeout", [](Kinds& k) { k.timeout = seconds(3); }), R"("3s")");
  EXPECT_EQ(member("timeout", [](Kinds& k) { k.timeout = milliseconds(1500); }), R"("1.500s")");
  EXPECT_EQ(member("legs", [](Kinds& k) { k.legs["a"] = -microseconds(1); }),
            R"({"a":"-0.000001s"})");
  EXPECT_EQ(member("legs", [](Kinds& k) { k.legs["a"] = nanoseconds::min(); }),
            R"({"a":"-9223372036.854775808s"})");
  EXPECT_EQ(member("timeout", [](Kinds& k) { k.timeout = milliseconds::max(); }),
            R"("9223372036854775.807s")");
  EXPECT_EQ(member("seconds32", [](Kinds& k) { k.seconds32 = duration<std::int32_t>(-7); }),
            R"("-7s")");
}

TEST_F(MemberKinds, ADurationIsReadFromSecondsWithUpToNineFractionDigits) {
  EXPECT_EQ(read("timeout", R"("1.5s")").timeout, milliseconds(1500));
  EXPECT_EQ(read("timeout", R"("-0.000000000s")").timeout, milliseconds(0));
  EXPECT_EQ(read("timeout", R"("007.1s")").timeout, milliseconds(7100));
  EXPECT_EQ(read("legs", R"({"x":"9223372036.854775807s"})").legs.at("x"), nanoseconds::max());
  EXPECT_EQ(read("seconds32", R"("2147483647s")").seconds32, duration<std::int32_t>(2147483647));
}

TEST_F(MemberKinds, AnythingElseIsNotADurationAndWhatTheTypeCannotHoldIsOutOfRange) {
  for (const char* text : {"1.5", "1.5S", "s", "-s", ".5s", "1.s", "1.0000000001s", "1e3s", "+1s",
                           " 1s", "1s ", "1,5s", "PT1S", ""}) {
    EXPECT_EQ(
        both.refusal(doc("timeout", "\"" + std::string(text) + "\"")),
        std::string(R"(member "/timeout": ")") + text + R"(" is not a duration such as "1.5s")");
  }
  EXPECT_EQ(both.refusal(doc("timeout", R"("0.0001s")")),
            R"(member "/timeout": "0.0001s" is out of range)");
  EXPECT_EQ(both.refusal(doc("seconds32", R"("2147483648s")")),
            R"(member "/seconds32": "2147483648s" is out of range)");
  EXPECT_EQ(both.refusal(doc("legs", R"({"air":"9223372036.854775808s"})")),
            R"(member "/legs/air": "9223372036.854775808s" is out of range)");
  EXPECT_EQ(both.refusal(doc("legs", R"({"air":"99999999999999999999999999999999999999s"})")),
            R"(member "/legs/air": "99999999999999999999999999999999999999s" is out of range)");
  EXPECT_EQ(both.refusal(doc("timeout", "1.5")),
            R"(member "/timeout": expected a string, got a number)");
}

TEST_F(MemberKinds, BytesAreStandardBase64WithPadding) {
  const auto bytes = [](std::initializer_list<int> values) {
    std::vector<std::byte> out;
    for (const int v : values) out.push_back(static_cast<std::byte>(v));
    return out;
  };
  EXPECT_EQ(member("payload",
                   [&](Kinds& k) {
                     k.payload = bytes({0, 1, 2, 255});
                   }),
            R"("AAEC/w==")");
  EXPECT_EQ(member("payload", [&](Kinds& k) { k.payload = bytes({251, 255}); }), R"("+/8=")");
  EXPECT_EQ(member("payload", [&](Kinds& k) { k.payload = bytes({1, 2, 3}); }), R"("AQID")");
  EXPECT_EQ(read("payload", R"("AAEC/w==")").payload, bytes({0, 1, 2, 255}));
  EXPECT_EQ(read("payload", R"("")").payload, bytes({}));
  for (const char* text :
       {"AAE", "A===", "AB=C", "AR==", "AAB=", "Zm9v!AAA", "Zm9v\\n", "-_8=", "AA==AA==", "=AAA"}) {
    EXPECT_EQ(both.refusal(doc("payload", "\"" + std::string(text) + "\"")),
              R"(member "/payload": not base64)")
        << text;
  }
}

TEST_F(MemberKinds, ASetIsWrittenInItsOrderAndARepeatedItemIsRefused) {
  EXPECT_EQ(member("tags", [](Kinds& k) { k.tags = {"b", "a", "é"}; }), R"(["a","b","é"])");
  EXPECT_EQ(read("tags", R"(["b","a"])").tags, (std::set<std::string>{"a", "b"}));
  EXPECT_EQ(both.refusal(doc("tags", R"(["a","b","a"])")), R"(member "/tags/2": duplicate item)");
  EXPECT_EQ(both.refusal(doc("tags", R"(["\u00e9","é"])")), R"(member "/tags/1": duplicate item)");
  EXPECT_EQ(both.refusal(doc("groups", "[[1,2],[3,-0,0]]")),
            R"(member "/groups/1/2": duplicate item)");
}

TEST_F(MemberKinds, AnArrayHoldsExactlyItsItems) {
  EXPECT_EQ(member("rgb", [](Kinds& k) { k.rgb = {1, 2, 255}; }), "[1,2,255]");
  EXPECT_EQ(read("rgb", "[9,8,7]").rgb, (std::array<std::uint8_t, 3>{9, 8, 7}));
  EXPECT_EQ(both.refusal(doc("rgb", "[1,2]")), R"(member "/rgb": expected 3 items, got 2)");
  EXPECT_EQ(both.refusal(doc("rgb", "[1,2,3,4]")), R"(member "/rgb": expected 3 items, got 4)");
  EXPECT_EQ(both.refusal(doc("rgb", "[1,2,256]")), R"(member "/rgb/2": 256 is out of range)");
}

TEST_F(MemberKinds, AnUnorderedMapIsWrittenWithItsKeysSortedBytewise) {
  EXPECT_EQ(member("weights",
                   [](Kinds& k) {
                     k.weights = {{"b", 2}, {"é", 3}, {"a", 1}, {"B", 0.5}};
                   }),
            R"({"B":0.5,"a":1,"b":2,"é":3})");
  EXPECT_EQ(read("weights", R"({"x":1.5})").weights.at("x"), 1.5);
  EXPECT_EQ(both.refusal(doc("weights", R"({"a":1,"b":"2"})")),
            R"(member "/weights/b": expected a number, got a string)");
}

TEST_F(MemberKinds, AFloatBeyondFloatsRangeIsRefusedWhenReading) {
  EXPECT_EQ(both.refusal(doc("floats", R"({"x":3.4028234663852886e38})")), "(accepted)");
  // Up to half a unit past the largest float, a number still rounds to it.
  EXPECT_EQ(both.refusal(doc("floats", R"({"x":3.4028235677973362e38})")), "(accepted)");
  EXPECT_EQ(both.refusal(doc("floats", R"({"x":3.4028235677973366e38})")),
            R"(member "/floats/x": 3.4028235677973366e+38 is out of range)");
  EXPECT_EQ(both.refusal(doc("floats", R"({"x":3.5e38})")),
            R"(member "/floats/x": 3.5e+38 is out of range)");
  EXPECT_EQ(both.refusal(doc("floats", R"({"x":-1e39})")),
            R"(member "/floats/x": -1e+39 is out of range)");
}

TEST_F(MemberKinds, AStringThatIsNotUtf8IsRefusedWhenWriting) {
  const std::string prefix = "Error while serializing: test/Kinds, ";
  for (const char* bad : {"\xff", "a\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
    auto message = std::make_unique<Kinds>();
    message->text = bad;
    std::unique_ptr<Message> held = std::move(message);
    EXPECT_EQ(both.writeRefusal(held), prefix + R"(member "/text": the string is not valid UTF-8)");
  }
  auto message = std::make_unique<Kinds>();
  message->floats["k\xff"] = 1;
  std::unique_ptr<Message> held = std::move(message);
  EXPECT_EQ(both.writeRefusal(held),
            prefix + "member \"/floats/k\xff\": the string is not valid UTF-8");
  message = std::make_unique<Kinds>();
  message->text = "é€😀\x7f";
  held = std::move(message);
  EXPECT_EQ(both.writeRefusal(held), "(written)");
}

TEST_F(MemberKinds, EveryKindReadsBackWhatItWrote) {
  Kinds value;
  value.at = system_clock::time_point(nanoseconds(-123456789012345678));
  value.maybeAt = system_clock::time_point(seconds(0));
  value.timeout = milliseconds(-1);
  value.legs = {{"a", nanoseconds(1)}, {"b", hours(-100000)}};
  value.seconds32 = duration<std::int32_t>(std::numeric_limits<std::int32_t>::min());
  value.payload = {std::byte{0x80}};
  value.tags = {"", "x"};
  value.groups = {{}, {std::numeric_limits<int>::min(), 0}};
  value.rgb = {255, 0, 128};
  value.weights = {{"w", -0.1}};
  value.text = std::string("a\0b", 3) + "é\"\\";
  value.floats = {{"max", std::numeric_limits<float>::max()}};
  const std::string text = written(value);
  const auto back = both.read(text);
  EXPECT_EQ(both.write(back), text);
  const auto& read = dynamic_cast<const Kinds&>(*back);
  EXPECT_EQ(read.at, value.at);
  EXPECT_EQ(read.legs, value.legs);
  EXPECT_EQ(read.seconds32, value.seconds32);
  EXPECT_EQ(read.groups, value.groups);
  EXPECT_EQ(read.weights, value.weights);
  EXPECT_EQ(read.text, value.text);
}

}  // namespace
}  // namespace connector::typestest
