#include <gtest/gtest.h>

#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"

namespace connector {
namespace {

TEST(Promise, ValueReachesTheFuture) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setValue(true);
  EXPECT_TRUE(future.get());
}

TEST(Promise, DestroyedUnresolvedFailsTheFuture) {
  Future<bool> future;
  {
    Promise<bool> promise;
    future = promise.getFuture();
  }
  EXPECT_THROW_TEXT(future.get(), std::runtime_error,
                    "Promise destroyed before it provided a value.");
}

}  // namespace
}  // namespace connector
