#pragma once

#include <aws/core/Aws.h>
#include <gtest/gtest.h>

#include <cstdlib>
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

// The owner of the process initialises the SDK; here that is the test program.
class AwsApi : public testing::Environment {
 public:
  void SetUp() override {
    setenv("AWS_EC2_METADATA_DISABLED", "true", 1);
    setenv("AWS_RETRY_MODE", "standard", 1);
    setenv("AWS_MAX_ATTEMPTS", "1", 1);
    Aws::InitAPI(options);
  }
  void TearDown() override { Aws::ShutdownAPI(options); }

 private:
  Aws::SDKOptions options;
};

}  // namespace testsupport
