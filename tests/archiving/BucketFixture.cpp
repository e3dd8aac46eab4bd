#include "tests/archiving/BucketFixture.h"

#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cstdlib>

#include "tests/store/ScriptedStore.h"
#include "tests/support/S3Server.h"

namespace qvArchiving {

void Bucket::SetUp() {
  access = testsupport::S3Setting("access");
  secret = testsupport::S3Setting("secret");
  ASSERT_FALSE(access.empty()) << "first: tests/s3/server.sh start " KELVO_S3_FOLDER;
  static int count = 0;
  bucket = "kelvo-" + std::to_string(getpid()) + "-" + std::to_string(++count);
  testsupport::RedirectRequests("http://localhost:" + testsupport::S3Setting("port"));
  testsupport::SetVariable("AWS_MAX_ATTEMPTS", "3");  // the server may be busy
  scanner = Open();
  ASSERT_TRUE(scanner->CreateDirectories(tree.Root(), error)) << error;
  testsupport::SetVariable("AWS_MAX_ATTEMPTS", "1");  // from here on failures are meant
}

void Bucket::Server(const std::string& verb) {
  const std::string command = KELVO_S3_SCRIPT " " + verb + " " KELVO_S3_FOLDER;
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

}  // namespace qvArchiving
