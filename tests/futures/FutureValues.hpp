// Sample values for the three result types that promises and futures carry, so that
// one typed test checks all of them the same way.
//
//   using Types = ::testing::Types<bool, DataBuffer, std::unique_ptr<Message>>;
//   FutureValue<TypeParam> sample;      // a distinctive value and its expectation
//   promise.setValue(sample.make());
//   sample.expectSame(future.get());
//
// Thread-safety: plain test helpers; one thread at a time.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string_view>

#include <connector/json.hpp>

namespace connector::testing {

template <typename T>
struct FutureValue;

template <>
struct FutureValue<bool> {
  bool make() { return true; }
  void expectSame(bool got) { EXPECT_TRUE(got); }
};

template <>
struct FutureValue<common::DataBuffer> {
  const std::uint8_t* bytes = nullptr;
  common::DataBuffer make() {
    common::DataBuffer value(std::string_view("payload bytes"));
    bytes = value.data;
    return value;
  }
  // The very bytes that went in come out: the buffer is moved, never copied.
  void expectSame(const common::DataBuffer& got) {
    EXPECT_EQ(got.view(), "payload bytes");
    EXPECT_EQ(got.data, bytes);
  }
};

template <>
struct FutureValue<std::unique_ptr<Message>> {
  const Message* message = nullptr;
  std::unique_ptr<Message> make() {
    auto value = std::make_unique<Message>();
    message = value.get();
    return value;
  }
  void expectSame(const std::unique_ptr<Message>& got) { EXPECT_EQ(got.get(), message); }
};

using FutureValueTypes = ::testing::Types<bool, common::DataBuffer, std::unique_ptr<Message>>;

}  // namespace connector::testing
