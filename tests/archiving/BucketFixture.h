#pragma once

#include "tests/archiving/TargetFixture.h"

namespace qvArchiving {

// A fresh bucket of the S3 server that tests/s3/server.sh runs.
class Bucket : public Target {
 protected:
  void SetUp() override;

  // Runs server.sh with this verb.
  static void Server(const std::string& verb);
};

}  // namespace qvArchiving
