// json::Variant: a tagged union written with its tag first, read by its tag wherever the
// tag stands, its refusals (exact texts, through both reading paths, at the top and
// nested in a vector, an optional and a map), its declaration errors and its schema.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"
#include "types/ReadBothWays.hpp"

namespace connector::typestest {
namespace {

struct Circle {
  double radius = 0;
};
struct Square {
  double side = 0;
};
struct Blob {
  int size = 0;
};
using Shape = std::variant<Circle, Square, Blob>;

struct Drawing : connector::Message {
  Shape shape;
  std::vector<Shape> shapes;
  std::optional<Shape> maybe;
  std::map<std::string, Shape> byName;
};

const json::Variant<Shape>& shapes() {
  static const auto described =
      json::Variant<Shape>("kind")
          .alternative("circle", json::Struct<Circle>().field("radius", &Circle::radius))
          .alternative("square",
                       json::Struct<Square>().field("side", &Square::side).rejectUnknownMembers());
  return described;
}

json::MessageType<Drawing> declareDrawing() {
  json::MessageType<Drawing> type("test/Drawing");
  type.field("shape", &Drawing::shape, shapes())
      .field("shapes", &Drawing::shapes, shapes())
      .field("maybe", &Drawing::maybe, shapes())
      .field("byName", &Drawing::byName, shapes());
  return type;
}

class Variants : public ::testing::Test {
 protected:
  static std::string doc(const std::string& shape, const std::string& more = "") {
    return R"({"type":"test/Drawing","shape":)" + shape + R"(,"shapes":[],"byName":{})" +
           (more.empty() ? "" : "," + more) + "}";
  }

  json::MessageType<Drawing> type = declareDrawing();
  ReadBothWays both{type};
};

TEST_F(Variants, TheTagIsWrittenFirstThenTheAlternativesMembers) {
  auto drawing = std::make_unique<Drawing>();
  drawing->shape = Circle{2};
  drawing->shapes = {Square{1.5}, Circle{0}};
  drawing->maybe = Square{3};
  drawing->byName = {{"a", Circle{1}}};
  std::unique_ptr<Message> held = std::move(drawing);

  EXPECT_EQ(both.write(held),
            R"({"shape":{"kind":"circle","radius":2},"shapes":[{"kind":"square","side":1.5},)"
            R"({"kind":"circle","radius":0}],"maybe":{"kind":"square","side":3},)"
            R"("byName":{"a":{"kind":"circle","radius":1}},"type":"test/Drawing"})");
}

TEST_F(Variants, TheTagChoosesTheAlternativeWhereverItStands) {
  const auto message = both.read(doc(R"({"side":4,"kind":"square"})",
                                     R"("maybe":null,"shapes":[{"radius":1,"kind":"circle"}])"));
  const auto& drawing = dynamic_cast<const Drawing&>(*message);
  ASSERT_TRUE(std::holds_alternative<Square>(drawing.shape));
  EXPECT_EQ(std::get<Square>(drawing.shape).side, 4);
  EXPECT_EQ(drawing.maybe, std::nullopt);
  ASSERT_EQ(drawing.shapes.size(), 1U);
  EXPECT_EQ(std::get<Circle>(drawing.shapes[0]).radius, 1);
}

TEST_F(Variants, TheTagIsNeverAnUnknownMember) {
  EXPECT_EQ(both.refusal(doc(R"({"kind":"square","side":1})")), "(accepted)");
  EXPECT_EQ(both.refusal(doc(R"({"kind":"square","side":1,"x":0})")),
            R"(member "/shape/x" is not expected)");
}

TEST_F(Variants, AMissingTagIsNamedWithItsPath) {
  EXPECT_EQ(both.refusal(doc(R"({"radius":1})")), R"(member "/shape/kind" is missing)");
  EXPECT_EQ(both.refusal(R"({"type":"test/Drawing","shape":{"kind":"circle","radius":1},)"
                         R"("shapes":[{"kind":"circle","radius":1},{}],"byName":{}})"),
            R"(member "/shapes/1/kind" is missing)");
}

TEST_F(Variants, ATagThatIsNotAStringIsNamedWithItsKind) {
  EXPECT_EQ(both.refusal(doc(R"({"kind":1})")),
            R"(member "/shape/kind": expected a string, got an integer)");
  EXPECT_EQ(both.refusal(doc(R"({"kind":null})")),
            R"(member "/shape/kind": expected a string, got null)");
}

TEST_F(Variants, AnUnknownTagListsTheTagsInDeclarationOrder) {
  EXPECT_EQ(both.refusal(doc(R"({"kind":"triangle"})")),
            R"(member "/shape/kind": "triangle" is not one of "circle", "square")");
  EXPECT_EQ(both.refusal(doc(R"({"kind":"circle","radius":1})", R"("maybe":{"kind":"Circle"})")),
            R"(member "/maybe/kind": "Circle" is not one of "circle", "square")");
}

TEST_F(Variants, TheAlternativesRulesApplyInsideIt) {
  EXPECT_EQ(both.refusal(doc(R"({"kind":"circle"})")), R"(member "/shape/radius" is missing)");
  EXPECT_EQ(both.refusal(R"({"type":"test/Drawing","shape":{"kind":"circle","radius":1},)"
                         R"("shapes":[],"byName":{"a/b":{"kind":"square","side":"1"}}})"),
            R"(member "/byName/a~1b/side": expected a number, got a string)");
  EXPECT_EQ(both.refusal(doc("[]")), R"(member "/shape": expected an object, got an array)");
  // The parser keeps the last of a repeated member: a square, which refuses "radius".
  EXPECT_EQ(both.refusal(doc(R"({"kind":"circle","radius":1,"kind":"square","side":2})")),
            R"(member "/shape/radius" is not expected)");
}

TEST_F(Variants, WritingAnAlternativeWithoutATagIsRefused) {
  auto drawing = std::make_unique<Drawing>();
  drawing->shapes = {Circle{1}, Blob{3}};
  std::unique_ptr<Message> held = std::move(drawing);
  EXPECT_EQ(both.writeRefusal(held),
            "Error while serializing: test/Drawing, "
            R"(member "/shapes/1": alternative 2 of the variant has no tag)");
}

TEST_F(Variants, DeclarationErrorsAreInvalidArguments) {
  auto shape = json::Variant<Shape>("kind").alternative(
      "circle", json::Struct<Circle>().field("radius", &Circle::radius));
  EXPECT_THROW_TEXT(
      shape.alternative("circle", json::Struct<Square>().field("side", &Square::side)),
      std::invalid_argument, R"(variant tag "circle" is given twice)");
  EXPECT_THROW_TEXT(shape.alternative("round", json::Struct<Circle>()), std::invalid_argument,
                    "alternative 0 of the variant is described twice");
  EXPECT_THROW_TEXT(shape.alternative("blob", json::Struct<Blob>().field("kind", &Blob::size)),
                    std::invalid_argument,
                    R"(alternative "blob" declares a member named like the tag "kind")");
  EXPECT_THROW_TEXT(
      shape.alternative(
          "blob", json::Struct<Blob>().field("size", &Blob::size, json::Field().alias("kind"))),
      std::invalid_argument, R"(alternative "blob" declares a member named like the tag "kind")");
}

TEST_F(Variants, TheSchemaIsOneOfTheAlternativesEachRequiringItsTag) {
  std::ostringstream out;
  shapes().schema()->stringify(out);
  EXPECT_EQ(
      out.str(),
      R"({"$schema":"https://json-schema.org/draft/2020-12/schema","oneOf":[)"
      R"({"type":"object","properties":{"kind":{"const":"circle"},"radius":{"type":"number"}},)"
      R"("required":["kind","radius"]},)"
      R"({"type":"object","properties":{"kind":{"const":"square"},"side":{"type":"number"}},)"
      R"("required":["kind","side"],"additionalProperties":false}]})");
}

}  // namespace
}  // namespace connector::typestest
