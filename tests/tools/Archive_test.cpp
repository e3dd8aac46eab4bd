#include <unistd.h>

#include <cstdlib>
#include <regex>

#include "tests/support/S3Server.h"
#include "tests/tools/ToolFixture.h"

namespace toolstest {
namespace {

class BucketArchive : public ToolTest {
 protected:
  void SetUp() override {
    ASSERT_FALSE(testsupport::S3Setting("port").empty())
        << "first: tests/s3/server.sh start " KELVO_S3_FOLDER;
    const std::string url = "http://localhost:" + testsupport::S3Setting("port");
    setenv("AWS_ENDPOINT_URL_S3", url.c_str(), 1);
    setenv("AWS_ACCESS_KEY_ID", testsupport::S3Setting("access").c_str(), 1);
    setenv("AWS_SECRET_ACCESS_KEY", testsupport::S3Setting("secret").c_str(), 1);
    archive = "--archive tools-" + std::to_string(getpid()) + ".s3.us-east-1.amazonaws.com ";
  }
  std::string archive;
};

TEST_F(BucketArchive, IsSearchedAndPlayedWithoutTheRecorder) {
  Record("--codec h264 --audio aac");
  const std::string file = OnlyRecording();
  std::smatch day;
  ASSERT_TRUE(std::regex_search(file, day, std::regex("/(\\d{4})/(\\d\\d)/(\\d\\d)/")));
  const std::string upload = "archive --dir . " + archive + "--day " + day[1].str() + "-" +
                             day[2].str() + "-" + day[3].str();
  const auto early = Nvrhost(upload);
  EXPECT_EQ(early.code, 2);
  EXPECT_TRUE(early.Says("that day isn't over")) << early.text;
  const auto first = Nvrhost(upload + " --unfinished");
  EXPECT_EQ(first.code, 0);
  EXPECT_TRUE(first.Says("2 files, ")) << first.text;
  EXPECT_TRUE(Nvrhost(upload + " --unfinished").Says("0 files, 0 B uploaded in "));

  const auto local = Nvrhost("search --dir . --json");
  const auto remote = Nvrhost("search --dir elsewhere --json " + archive);
  EXPECT_EQ(remote.code, 0);
  EXPECT_EQ(remote.text, local.text);
  for (int round = 0; round < 2; ++round) {
    const auto played = Nvrhost("play --dir elsewhere --verify given --complete " + archive);
    EXPECT_EQ(played.code, 0) << played.text;
  }
  EXPECT_EQ(tree.FilesEndingIn(".psi").size(), 2u) << "the recorder's and one local copy";

  const auto refused = Nvrhost("play --dir third --password wrongsecret " + archive);
  EXPECT_EQ(refused.code, 2);
  EXPECT_TRUE(refused.Says("can't list the archive")) << refused.text;
  EXPECT_FALSE(refused.Says("wrongsecret")) << refused.text;
}

}  // namespace
}  // namespace toolstest
