#include "tests/plugin/BucketFixture_posix.h"

#include <algorithm>
#include <boost/filesystem.hpp>

#include "tests/support/AwsApi.h"

namespace plugintest {
namespace {

namespace fs = boost::filesystem;

[[maybe_unused]] const auto* const api = testing::AddGlobalTestEnvironment(new testsupport::AwsApi);

}  // namespace

BucketSearch::BucketSearch() {
  setenv("AWS_ENDPOINT_URL_S3", store.Url().c_str(), 1);
  setenv("AWS_MAX_ATTEMPTS", "1", 1);
}

std::map<std::string, std::uint64_t> BucketSearch::MoveToBucket() {
  std::map<std::string, std::uint64_t> sizes;
  for (const std::string& name : qv::kelvo::FilesBelow(tree.Path("drives/a"), "")) {
    const fs::path file = tree.Path("drives/a/" + name);
    if (!file.extension().string().starts_with(".ps")) continue;
    store.Put(name, tree.Read("drives/a/" + name));
    sizes[file.filename().string()] = fs::file_size(file);
    fs::remove(file);
  }
  return sizes;
}

void BucketSearch::Announce(int status) {
  const std::string begin = "<qDVR><Archives ID=\"3735552\"><Archive ID=\"4\" ";
  Tell(begin + "Enabled=\"1\" Type=\"5\" MountPoint=\"" + cache +
       "\" Address=\"footage.s3.us-east-1.amazonaws.com\" Username=\"user\""
       " Password=\"kelvotestsecret\"/></Archives></qDVR>");
  ASSERT_TRUE(host->WriteXml(
      KELVO_WRITE_ACTION, begin + "Status=\"" + std::to_string(status) + "\"/></Archives></qDVR>"));
  Sync();
}

std::vector<Fetch> BucketSearch::Fetches() {
  std::vector<Fetch> fetches;
  for (const Request& request : store.TakeRequests()) {
    if (!request.IsFetch()) continue;
    const std::uint64_t end =
        std::min<std::uint64_t>(store.Get(request.key).size(), request.last + 1);
    fetches.push_back({request.key.substr(request.key.rfind('/') + 1), request.first,
                       end - std::min(end, request.first)});
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
