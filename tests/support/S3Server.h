#pragma once

#include <fstream>
#include <string>

// The S3 server that tests/s3/server.sh runs in the folder KELVO_S3_FOLDER.
namespace testsupport {

// The value of a line name=value of the server's environment file; "" without a server.
[[nodiscard]] inline std::string S3Setting(const std::string& name) {
  std::ifstream file(KELVO_S3_FOLDER "/s3.env");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(name + "=")) return line.substr(name.size() + 1);
  }
  return {};
}

}  // namespace testsupport
