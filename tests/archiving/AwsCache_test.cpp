#include "archiving/AwsCache.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/filesystem.hpp>
#include <optional>
#include <thread>

#include "tests/archiving/TargetFixture.h"

namespace qvArchiving {
namespace {

namespace fs = boost::filesystem;
using testsupport::Conversation;

class Cache : public Target {
 protected:
  Cache() {
    clock.SetNow(1'750'000'000'000);
    bundle.drives.Add(tree.Root());
  }

  void Add(const std::string& name, std::uint64_t size) {
    if (!fs::exists(Path(name))) tree.Write(name, "data");
    const fs::path path = Path(name);
    cache->Add({path, path.filename().string(), size, false, clock.NowMs() / 1000}, 0);
  }
  std::string Do(const std::string& command, const Words& words) override {
    if (command == "open") {
      cache.emplace(Given(words), bundle.platform);
    } else if (command == "add") {
      Add(words.at(0), std::stoull(words.at(1)));
    } else if (command == "use") {
      cache->Use({Path(words.at(0))});
    } else if (command == "pass") {
      clock.Advance(std::stoll(words.at(0)) * 1000);
    } else if (command == "disk") {
      bundle.drives.SetSpace(tree.Root(), {std::stoull(words.at(0)) << 30, 0, 0});
    } else if (command == "files") {
      return boost::join(tree.Files(), "\n");
    } else {
      return Target::Do(command, words);
    }
    std::vector<std::string> told;
    for (const auto& line : host.Lines())
      told.push_back(line.text.substr(line.text.find("] ") + 2));
    return told.empty() ? "yes" : boost::join(told, "\n");
  }

  std::optional<AwsCache> cache;
};

class Caches : public Cache, public testing::WithParamInterface<Conversation> {};

TEST_P(Caches, KeepWhatTheyAreToldTo) {
  Hold(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Text, Caches,
                         testing::ValuesIn(testsupport::ReadConversations(KELVO_TARGETS
                                                                          "cache.txt")),
                         [](const auto& made) { return made.param.name; });

TEST_F(Cache, IsOneForAMountedPathThroughAReconfiguration) {
  const auto one = AwsCache::Of(Properties(), bundle.platform);
  EXPECT_EQ(AwsCache::Of(Given({"FullyMountedPath=" + tree.Root() + "//"}), bundle.platform), one);
}

TEST_F(Cache, KeepsItsSumUnderConcurrentDownloads) {
  cache.emplace(Given({"CacheSizeGigabytes=1"}), bundle.platform);
  const std::uint64_t size = std::uint64_t{1} << 24;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 50; ++i) Add(std::to_string(thread * 50 + i), size);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::size_t left = tree.Files().size();
  EXPECT_TRUE(left >= 57 && left <= 64) << left;
  Add("last", 0);
  const std::string total = std::to_string(left * size);
  EXPECT_TRUE(host.Lines().back().text.ends_with(" total=" + total)) << total;
}

}  // namespace
}  // namespace qvArchiving
