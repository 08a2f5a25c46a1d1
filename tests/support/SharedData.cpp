#include "support/SharedData.hpp"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace connector::testing {

std::filesystem::path sharedDataDir() {
  if (const char* dir = std::getenv("CONNECTOR_SHARED_DATA"); dir != nullptr && *dir != '\0') {
    return dir;
  }
  return std::filesystem::path(CONNECTOR_SOURCE_DIR) / ".." / "shared" / "data";
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    throw std::runtime_error("cannot read " + path.string());
  }
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

}  // namespace connector::testing
