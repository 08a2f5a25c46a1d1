// validatedBySchema: runs Debian's python3-jsonschema (Draft202012Validator) on a schema
// and documents written to a fresh temporary folder, and returns its verdict on each.
//
//   std::vector<bool> valid = validatedBySchema(order.schema(), {R"({"type":...})"});
//
// Runs CONNECTOR_PYTHON3 (the system interpreter, isolated from user packages) with the
// script validate_documents.py of this folder. A missing interpreter or package, or any
// other failure of the script, fails the calling test: it never passes by skipping.
//
// Thread-safety: one call at a time per process (it changes nothing shared, but starts a
// process and writes files).
#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/JSON/Object.h>

namespace connector::typestest {

inline std::vector<bool> validatedBySchema(const Poco::JSON::Object::Ptr& schema,
                                           const std::vector<std::string>& documents) {
  namespace fs = std::filesystem;
  static int calls = 0;
  const fs::path folder =
      fs::temp_directory_path() /
      ("connector-schema-" + std::to_string(::getpid()) + "-" + std::to_string(++calls));
  fs::create_directories(folder);
  std::string command = std::string(CONNECTOR_PYTHON3) + " -I " + CONNECTOR_TYPES_TEST_DIR +
                        "/validate_documents.py " + (folder / "schema.json").string();
  {
    std::ofstream out(folder / "schema.json");
    schema->stringify(out);
  }
  for (std::size_t i = 0; i < documents.size(); ++i) {
    const fs::path path = folder / ("document-" + std::to_string(i) + ".json");
    std::ofstream(path) << documents[i];
    command += " " + path.string();
  }
  command += " 2>&1";

  std::string output;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) {
    ADD_FAILURE() << "cannot run " << command;
    return {};
  }
  char chunk[4096];
  std::size_t n = 0;
  while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) output.append(chunk, n);
  const int status = ::pclose(pipe);
  fs::remove_all(folder);
  EXPECT_EQ(status, 0) << "the schema validator failed (is python3-jsonschema installed?):\n"
                       << output;

  std::vector<bool> verdicts;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line == "valid" || line == "invalid") verdicts.push_back(line == "valid");
  }
  EXPECT_EQ(verdicts.size(), documents.size()) << output;
  return verdicts;
}

}  // namespace connector::typestest
