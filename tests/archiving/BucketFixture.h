#pragma once

#include "tests/archiving/TargetFixture.h"

namespace qvArchiving {

// Sends the requests of clients that are made from now on to this address.
void RedirectRequests(const std::string& url);

// Bytes that differ from one place to the next.
[[nodiscard]] std::string SampleBytes(std::size_t size, unsigned seed = 1);

// A fresh bucket of the S3 server that tests/s3/server.sh runs.
class Bucket : public Target {
 protected:
  void SetUp() override;

  // Runs server.sh with this verb.
  static void Server(const std::string& verb);
};

}  // namespace qvArchiving
