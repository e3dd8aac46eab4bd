#include "tests/archiving/BucketFixture.h"

#include <unistd.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cstdlib>
#include <random>

#include "tests/support/S3Server.h"

namespace qvArchiving {

void RedirectRequests(const std::string& url) {
  setenv("AWS_ENDPOINT_URL_S3", url.c_str(), 1);
}

std::string SampleBytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  std::ranges::generate(bytes, [&random] { return static_cast<char>(random()); });
  return bytes;
}

void Bucket::SetUp() {
  access = testsupport::S3Setting("access");
  secret = testsupport::S3Setting("secret");
  ASSERT_FALSE(access.empty()) << "first: tests/s3/server.sh start " KELVO_S3_FOLDER;
  static int count = 0;
  bucket = "kelvo-" + std::to_string(getpid()) + "-" + std::to_string(++count);
  RedirectRequests("http://localhost:" + testsupport::S3Setting("port"));
  setenv("AWS_MAX_ATTEMPTS", "3", 1);  // the server may be busy
  scanner = Open();
  ASSERT_TRUE(scanner->CreateDirectories(tree.Root(), error)) << error;
  setenv("AWS_MAX_ATTEMPTS", "1", 1);  // from here on failures are meant
}

void Bucket::Server(const std::string& verb) {
  const std::string command = KELVO_S3_SCRIPT " " + verb + " " KELVO_S3_FOLDER;
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

}  // namespace qvArchiving
