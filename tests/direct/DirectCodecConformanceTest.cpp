// The JSON parsing conformance suite read as a declared type that takes any object: each
// file as it stands (by name) and as the value of an undeclared member (by "type" and by
// name). Both paths must end the same way on every file: those the suite says must
// parse, those it says must fail, and those it leaves open.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/DirectDifferential.hpp"
#include "support/SharedData.hpp"

namespace connector::testing {
namespace {

// Any object; its members are all undeclared.
struct Anything : Message {};
// An object with one declared member of any kind the declared types know, for the
// files that hold a scalar or an array.
struct Holder : Message {
  std::vector<std::optional<double>> numbers;
};

constexpr const char* kAnything = "conformance/Anything";
constexpr const char* kHolder = "conformance/Holder";

class DirectCodecConformanceTest : public ::testing::TestWithParam<const char*> {
 protected:
  DirectCodecConformanceTest() {
    holder.field("numbers", &Holder::numbers);
    both.declare(anything);
    both.declare(holder);
  }

  std::vector<std::filesystem::path> files() const {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(
             sharedDataDir() / "json-test-suite" / "test_parsing")) {
      if (entry.path().filename().string().rfind(GetParam(), 0) == 0) found.push_back(entry.path());
    }
    std::sort(found.begin(), found.end());
    return found;
  }

  json::MessageType<Anything> anything{kAnything};
  json::MessageType<Holder> holder{kHolder};
  DirectDifferential both;
};

TEST_P(DirectCodecConformanceTest, EveryFileEndsTheSameOnBothPaths) {
  const auto paths = files();
  ASSERT_GE(paths.size(), 30u);
  const std::string anythingName = kAnything;
  const std::string holderName = kHolder;
  for (const auto& path : paths) {
    const std::string bytes = readFile(path);
    const std::string file = path.filename().string();
    EXPECT_EQ(both.compareRead(&anythingName, oneShot(bytes)), "") << file << " as it stands";
    EXPECT_EQ(both.compareRead(nullptr, oneShot(bytes)), "") << file << " by type";
    const std::string wrapped =
        std::string("{\"type\":\"") + kAnything + "\",\"value\":" + bytes + "}";
    EXPECT_EQ(both.compareRead(nullptr, oneShot(wrapped)), "") << file << " as a value";
    EXPECT_EQ(both.compareRead(&anythingName, oneShot(wrapped, 64)), "") << file << " as a value";
    const std::string held =
        std::string("{\"type\":\"") + kHolder + "\",\"numbers\":[" + bytes + "]}";
    EXPECT_EQ(both.compareRead(nullptr, oneShot(held)), "") << file << " as a number";
  }
}

INSTANTIATE_TEST_SUITE_P(Suite, DirectCodecConformanceTest, ::testing::Values("y_", "n_", "i_"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           return std::string(info.param).substr(0, 1);
                         });

}  // namespace
}  // namespace connector::testing
