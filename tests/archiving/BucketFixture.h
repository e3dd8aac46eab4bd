#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "archiving/IResult.h"
#include "archiving/IScanner.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvArchiving {

// Sends the requests of clients that are made from now on to this address.
void RedirectRequests(const std::string& url);

// Bytes that differ from one place to the next.
[[nodiscard]] std::string SampleBytes(std::size_t size, unsigned seed = 1);

// A bucket scanner over a local tree, with the properties of a well-formed target.
class ScannerFixture : public testing::Test {
 protected:
  [[nodiscard]] ScannerProperties Properties(const ScannerProperties& more = {}) const;
  [[nodiscard]] std::shared_ptr<IScanner> Open(const ScannerProperties& more = {},
                                               const ScannerCallback& callback = {});
  [[nodiscard]] std::string Path(const std::string& relative) const { return tree.Path(relative); }

  qvsvr::kelvo::FakeHost host;
  qv::kelvo::TempTree tree;
  qv::kelvo::TestBundle bundle;
  qv::kelvo::ManualClock& clock = bundle.clock;
  std::string bucket = "footage";
  std::string access = "KEY";
  std::string secret = "SECRET";
};

// A fresh bucket of the S3 server that tests/s3/server.sh runs.
class Bucket : public ScannerFixture {
 protected:
  void SetUp() override;

  // Runs server.sh with this verb.
  static void Server(const std::string& verb);
  // Stores an object, leaving no local copy.
  void Put(const std::string& relative, const std::string& content);
  // The object's content as a fresh download has it; the local copy stays.
  [[nodiscard]] std::string Get(const std::string& relative);
  // Waits for the end of a transfer that must have started.
  static TransferStatus Finish(const std::shared_ptr<IResult>& result);

  std::shared_ptr<IScanner> scanner;
  std::string error;
};

}  // namespace qvArchiving
