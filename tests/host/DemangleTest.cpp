#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include <connector/json.hpp>

namespace connector {
namespace {

using foundation::core::diag::detail::demangle_typeid_name;

struct LocalMessage : Message {};

template <typename T>
struct Wrapper {};

TEST(Demangle, MessageTypeGivesItsQualifiedNameForBothFlags) {
  EXPECT_EQ(demangle_typeid_name(typeid(Message).name(), true), "connector::Message");
  EXPECT_EQ(demangle_typeid_name(typeid(Message).name(), false), "connector::Message");
}

TEST(Demangle, NestedNamespacesAreKept) {
  EXPECT_EQ(demangle_typeid_name(typeid(common::DataBuffer).name(), true),
            "connector::common::DataBuffer");
}

TEST(Demangle, DynamicTypeOfADerivedMessageIsNamed) {
  std::unique_ptr<Message> message = std::make_unique<LocalMessage>();
  const Message& ref = *message;
  EXPECT_EQ(demangle_typeid_name(typeid(ref).name(), false),
            "connector::(anonymous namespace)::LocalMessage");
}

TEST(Demangle, LeadingAsteriskIsSkipped) {
  const std::string marked = std::string("*") + typeid(Message).name();
  EXPECT_EQ(demangle_typeid_name(marked.c_str(), true), "connector::Message");
  EXPECT_EQ(demangle_typeid_name(marked.c_str(), false), "connector::Message");
}

TEST(Demangle, TemplateArgumentsAreSpelledOut) {
  EXPECT_EQ(demangle_typeid_name(typeid(Wrapper<Message>).name(), true),
            "connector::(anonymous namespace)::Wrapper<connector::Message>");
}

TEST(Demangle, UnreadableNameComesBackAsGiven) {
  EXPECT_EQ(demangle_typeid_name("not a mangled name", true), "not a mangled name");
  EXPECT_EQ(demangle_typeid_name("*not mangled", false), "not mangled");
}

TEST(Demangle, NullNameGivesAnEmptyString) { EXPECT_EQ(demangle_typeid_name(nullptr, true), ""); }

}  // namespace
}  // namespace connector
