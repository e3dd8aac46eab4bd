#include "tests/plugin/BucketFixture_posix.h"

#include <unistd.h>

#include <boost/filesystem.hpp>
#include <regex>

#include "archiving/IResult.h"
#include "tests/support/S3Server.h"

namespace plugintest {
namespace {

namespace fs = boost::filesystem;

[[maybe_unused]] const auto* const api = testing::AddGlobalTestEnvironment(new testsupport::AwsApi);

}  // namespace

void BucketSearch::SetUp() {
  ASSERT_FALSE(testsupport::S3Setting("port").empty())
      << "first: tests/s3/server.sh start " KELVO_S3_FOLDER;
  const std::string url = "http://localhost:" + testsupport::S3Setting("port");
  setenv("AWS_ENDPOINT_URL_S3", url.c_str(), 1);
  setenv("AWS_MAX_ATTEMPTS", "3", 1);  // the server may be busy
  static int count = 0;
  bucket = "kelvo-search-" + std::to_string(getpid()) + "-" + std::to_string(++count) +
           ".s3.us-east-1.amazonaws.com";
  scanner = qvArchiving::CreateScanner({{"Type", "5"},
                                        {"FullName", bucket},
                                        {"FullyMountedPath", cache},
                                        {"UserName", testsupport::S3Setting("access")},
                                        {"Password", testsupport::S3Setting("secret")}},
                                       {}, bundle.clock);
  std::string error;
  ASSERT_TRUE(scanner->CreateDirectories(cache, error)) << error;
}

std::map<std::string, std::uint64_t> BucketSearch::MoveToBucket() {
  std::map<std::string, std::uint64_t> sizes;
  const fs::path drive = tree.Path("drives/a");
  for (const std::string& name : qv::kelvo::FilesBelow(drive.string(), "")) {
    const fs::path file = drive / name;
    if (!file.extension().string().starts_with(".ps")) continue;
    Put(file.string(), name);
    sizes[file.filename().string()] = fs::file_size(file);
    fs::remove(file);
  }
  return sizes;
}

void BucketSearch::Put(const std::string& localFile, const std::string& relative) {
  const auto upload = scanner->Upload(localFile, fs::path(cache) / relative, {});
  ASSERT_NE(upload, nullptr);
  upload->Wait();
  ASSERT_EQ(upload->GetStatus(), qvArchiving::TransferStatus::COMPLETED) << relative;
}

void BucketSearch::Announce(int status) {
  const std::string begin = "<qDVR><Archives ID=\"3735552\"><Archive ID=\"4\" ";
  Tell(begin + "Enabled=\"1\" Type=\"5\" MountPoint=\"" + cache + "\" Address=\"" + bucket +
       "\" Username=\"" + testsupport::S3Setting("access") + "\" Password=\"" +
       testsupport::S3Setting("secret") + "\"/></Archives></qDVR>");
  ASSERT_TRUE(host->WriteXml(
      KELVO_WRITE_ACTION, begin + "Status=\"" + std::to_string(status) + "\"/></Archives></qDVR>"));
  Sync();
}

std::vector<Fetch> BucketSearch::Fetches() {
  CountLog("");
  const std::regex pattern(
      R"(\] Download remote=.*/(\S+) local=\S+?(?: offset=(\d+) size=(\d+))?$)");
  std::vector<Fetch> fetches;
  for (; seen < log.size(); ++seen) {
    std::smatch match;
    if (!std::regex_search(log[seen].text, match, pattern)) continue;
    fetches.push_back({match[1]});
    if (!match[2].matched) continue;
    fetches.back().offset = std::stoull(match[2]);
    fetches.back().bytes = std::stoull(match[3]);
  }
  return fetches;
}

void BucketSearch::SearchUntil(const std::string& request, int frame) {
  const auto hear = host->onSearch;
  int count = 0;
  host->onSearch = [&](const KelvoHostRequest& heard) {
    hear(heard);
    return heard.SubCode == KELVO_SUB_SEARCH_FRAME && ++count == frame ? 1u : 0u;
  };
  EXPECT_EQ(Search(request).order.back(), 'F');
  host->onSearch = hear;
}

}  // namespace plugintest
