#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

#include <connector/json.hpp>

namespace connector {
namespace {

TEST(FutureStatus, IsAnUnsigned32BitEnumeration) {
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<FutureStatus>, std::uint32_t>));
}

TEST(FutureStatus, ValuesComeInTheirFixedOrder) {
  EXPECT_EQ(static_cast<std::uint32_t>(FutureStatus::Pending), 0u);
  EXPECT_EQ(static_cast<std::uint32_t>(FutureStatus::HasValue), 1u);
  EXPECT_EQ(static_cast<std::uint32_t>(FutureStatus::HasException), 2u);
  EXPECT_EQ(static_cast<std::uint32_t>(FutureStatus::Cancelled), 3u);
}

}  // namespace
}  // namespace connector
