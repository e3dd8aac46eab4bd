#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::Auth {

class AWSCredentials {
 public:
  AWSCredentials(String access, String secret)
      : accessKey(std::move(access)), secretKey(std::move(secret)) {}

  [[nodiscard]] const String& GetAWSAccessKeyId() const { return accessKey; }
  [[nodiscard]] const String& GetAWSSecretKey() const { return secretKey; }

 private:
  String accessKey;
  String secretKey;
};

}  // namespace Aws::Auth
