#pragma once

#include <aws/core/Aws.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace testsupport {

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
