#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string_view>

#include <connector/json.hpp>

#include "FutureValues.hpp"
#include "support/ExpectThrow.hpp"

namespace connector {
namespace {

using common::DataBuffer;
using testing::FutureValue;

template <typename T>
class ReadyFutureOfEachType : public ::testing::Test {};
TYPED_TEST_SUITE(ReadyFutureOfEachType, testing::FutureValueTypes);

TYPED_TEST(ReadyFutureOfEachType, GetReturnsTheValueAtOnce) {
  FutureValue<TypeParam> sample;
  Future<TypeParam> future = makeReadyFuture<TypeParam>(sample.make());
  EXPECT_TRUE(future.valid());
  sample.expectSame(future.get());
}

TYPED_TEST(ReadyFutureOfEachType, FailedFutureRethrowsAtOnce) {
  Future<TypeParam> future =
      makeFailedFuture<TypeParam>(std::make_exception_ptr(std::invalid_argument("refused")));
  EXPECT_TRUE(future.valid());
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument, "refused");
}

TEST(MakeFuture, ReadyFutureIsReadOnlyOnce) {
  Future<bool> future = makeReadyFuture<bool>(false);
  EXPECT_FALSE(future.get());
  EXPECT_THROW_TEXT(future.get(), std::runtime_error,
                    "Future already returned it's value or has an associated continuation.");
}

TEST(MakeFuture, ReadyFutureRunsAContinuationAtOnce) {
  Future<DataBuffer> future = makeReadyFuture<DataBuffer>(DataBuffer(std::string_view("now")));
  std::string_view seen;
  DataBuffer kept;
  future.then([&](Future<DataBuffer> ready) {
    kept = ready.get();
    seen = kept.view();
  });
  EXPECT_EQ(seen, "now");
}

TEST(MakeFuture, ReadyFutureIgnoresCancel) {
  Future<bool> future = makeReadyFuture<bool>(true);
  future.cancel();
  EXPECT_TRUE(future.get());
}

TEST(MakeFuture, FailedFutureCarriesTheCurrentExceptionOfAHandler) {
  Future<std::unique_ptr<Message>> future;
  try {
    throw std::runtime_error("parse failed");
  } catch (...) {
    future = makeFailedFuture<std::unique_ptr<Message>>(std::current_exception());
  }
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, "parse failed");
}

TEST(MakeFuture, FailedFutureFromANullExceptionFailsWithItsOwnError) {
  Future<std::unique_ptr<Message>> future;
  ASSERT_NO_THROW(future = makeFailedFuture<std::unique_ptr<Message>>(std::current_exception()));
  ASSERT_TRUE(future.valid());
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, "Failed future made from a null exception.");
}

TYPED_TEST(ReadyFutureOfEachType, FailedFutureFromNullRunsAContinuationWithItsOwnError) {
  Future<TypeParam> future = makeFailedFuture<TypeParam>(nullptr);
  bool ran = false;
  future.then([&ran](Future<TypeParam> ready) {
    ran = true;
    EXPECT_THROW_TEXT(ready.get(), std::runtime_error, "Failed future made from a null exception.");
  });
  EXPECT_TRUE(ran);
}

TEST(MakeFuture, FailedFutureWithAWrappedPointerSurfacesTheInnerException) {
  auto inner = std::make_exception_ptr(std::invalid_argument("wrapped"));
  Future<bool> future = makeFailedFuture<bool>(std::make_exception_ptr(inner));
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument, "wrapped");
}

TEST(MakeFuture, FailedFutureRunsAContinuationAtOnce) {
  Future<bool> future =
      makeFailedFuture<bool>(std::make_exception_ptr(std::runtime_error("no route")));
  bool ran = false;
  future.then([&ran](Future<bool> ready) {
    ran = true;
    EXPECT_THROW_TEXT(ready.get(), std::runtime_error, "no route");
  });
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace connector
