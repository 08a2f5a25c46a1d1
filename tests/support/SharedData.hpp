// Access to the shared test data (JSON conformance suite, corpus documents), which
// lives beside the repository and is never copied into it.
#pragma once

#include <filesystem>
#include <string>

namespace connector::testing {

// The data folder: $CONNECTOR_SHARED_DATA, else ../shared/data beside the source tree.
std::filesystem::path sharedDataDir();

// The whole file as bytes; throws std::runtime_error when it cannot be read.
std::string readFile(const std::filesystem::path& path);

}  // namespace connector::testing
