#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "archiving/AwsScanner.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvArchiving {
namespace {

// Wine's Schannel asks nobody; tools/windows/check.ps1 sets up a server and an authority.
TEST(RealMachine, StoreOfAnAuthorityWithoutARevocationListIsReached) {
  const char* endpoint = std::getenv("KELVO_TLS_ENDPOINT");
  if (endpoint == nullptr) GTEST_SKIP();
  _putenv_s("AWS_ENDPOINT_URL_S3", endpoint);
  qvsvr::kelvo::FakeHost host;
  const qv::kelvo::TempTree tree;
  qv::kelvo::TestBundle bundle;
  const auto target = CreateScanner({{property::kFullName, "bucket.s3.us-east-1.x"},
                                     {property::kFullyMountedPath, tree.Root()},
                                     {property::kType, "5"},
                                     {property::kUserName, "user"},
                                     {property::kPassword, "password"},
                                     {property::kVerifySSL, "true"}},
                                    {}, bundle.platform);
  ASSERT_NE(target, nullptr);
  std::uint64_t size = 0;
  std::string error;
  EXPECT_FALSE(target->GetFileSize("2024/05/06/07/0800-00110000.ps", size, error));
  // The server says 404.
  EXPECT_TRUE(!error.empty() && error.find("curlCode") == std::string::npos) << error;
}

}  // namespace
}  // namespace qvArchiving
