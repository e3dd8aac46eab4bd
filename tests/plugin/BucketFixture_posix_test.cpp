#include "tests/plugin/BucketFixture_posix.h"

#include <unistd.h>

#include <boost/filesystem.hpp>
#include <fstream>
#include <regex>

#include "archiving/IResult.h"
#include "tests/support/S3Server.h"

namespace plugintest {
namespace {

namespace fs = boost::filesystem;

[[maybe_unused]] const auto* const api = testing::AddGlobalTestEnvironment(new testsupport::AwsApi);

std::string LogFile() {
  return testsupport::S3Setting("home") + "/log/client.rgw.log";
}

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
  logBegin = std::ifstream(LogFile(), std::ios::ate).tellg();
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

std::vector<std::string> BucketSearch::ServerLog() {
  // A request is noted when it begins and when it is over: all that came before the marker are
  // there once both counts agree behind it. Each look asks for something, which takes its time.
  const std::string marker = bucket + "-marker-" + std::to_string(++markers);
  for (int looks = 0; looks < 200; ++looks) {
    EXPECT_FALSE(scanner->TestFile(fs::path(cache) / marker / "none"));
    std::ifstream file(LogFile());
    file.seekg(logBegin);
    std::vector<std::string> lines;
    int open = 0;
    bool marked = false;
    for (std::string line; std::getline(file, line);) {
      if (line.find("= starting new request req=") != std::string::npos) ++open;
      if (line.find("= req done req=") != std::string::npos) --open;
      if (line.find(" beast: ") == std::string::npos) continue;
      marked = marked || line.find(marker) != std::string::npos;
      lines.push_back(line);
    }
    if (marked && open <= 0) return lines;
  }
  ADD_FAILURE() << "the server's log doesn't tell of " << marker;
  return {};
}

std::vector<Fetch> BucketSearch::Fetches() {
  const auto lines = ServerLog();
  const std::regex pattern(
      R"re("GET /[^ ]*/([^ /?]+\.psi?) HTTP/1\.1" (\d+) (\d+) \S+ \S+ bytes=(\d+)-(\d+) )re");
  std::vector<Fetch> fetches;
  for (std::size_t n = seen; n < lines.size(); ++n) {
    std::smatch match;
    if (!std::regex_search(lines[n], match, pattern)) continue;
    EXPECT_EQ(match[2], "206") << lines[n];
    fetches.push_back({match[1], std::stoull(match[4]), std::stoull(match[3])});
    EXPECT_EQ(fetches.back().bytes, std::stoull(match[5]) + 1 - fetches.back().offset) << lines[n];
  }
  seen = lines.size();
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
