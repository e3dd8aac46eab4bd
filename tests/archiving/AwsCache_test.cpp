#include "archiving/AwsCache.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <thread>
#include <vector>

#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvArchiving {
namespace {

namespace fs = boost::filesystem;
constexpr std::int64_t kStart = 1'750'000'000;  // seconds
constexpr std::uint64_t kGigabyte = std::uint64_t{1} << 30;

class Cache : public testing::Test {
 protected:
  Cache() { clock.SetNow(kStart * 1000); }

  AwsCache Open(ScannerProperties more = {}) {
    more.insert({{"FullName", "T"}, {"FullyMountedPath", tree.Root()}});
    return {more, bundle.platform};
  }
  ScannedFile Entry(const std::string& relative, std::uint64_t size) {
    return {tree.Path(relative), fs::path(relative).filename().string(), size, false,
            clock.NowMs() / 1000};
  }
  // A small local file that is told to be larger.
  void Add(AwsCache& cache, const std::string& relative, std::uint64_t size) {
    tree.Write(relative, "data");
    cache.Add(Entry(relative, size), 0);
  }
  void Lay(const std::string& relative, std::uint64_t size, std::int64_t age) {
    tree.Write(relative, "");
    fs::resize_file(tree.Path(relative), size);  // sparse
    fs::last_write_time(tree.Path(relative), kStart - age);
  }
  using Names = std::vector<std::string>;

  qvsvr::kelvo::FakeHost host;
  qv::kelvo::TempTree tree;
  qv::kelvo::TestBundle bundle;
  qv::kelvo::ManualClock& clock = bundle.clock;
};

TEST_F(Cache, FindsWhatLiesThereAfterARestart) {
  Lay("2024/02/31/23/b.ps", 100, 50);
  Lay("2024/02/01/00/a.ps", 200, 90'000);
  Lay("2024/02/01/00/below/no.ps", 1, 0);
  Lay("2024/notes.txt", 1, 0);
  Lay("2024/02/01/00/a.ps.0123cdef.part", 5, 0);  // of a download that broke off
  AwsCache cache = Open();
  EXPECT_EQ(host.CountLines(25, "[T] cache loaded count=2 size=300"), 1u);
  EXPECT_TRUE(tree.FilesEndingIn(".part").empty());
  Add(cache, "2025/01/01/00/c.ps", 7);  // a.ps is older than a day
  EXPECT_EQ(tree.FilesEndingIn(".ps"),
            (Names{"2024/02/01/00/below/no.ps", "2024/02/31/23/b.ps", "2025/01/01/00/c.ps"}));
  EXPECT_EQ(host.CountLines(0, "cache- file=" + tree.Path("2024/02/01/00/a.ps") +
                                   " size=200 count=1 total=100"),
            1u);
}

TEST_F(Cache, TakesLimitsWithinTheirRange) {
  EXPECT_THROW((AwsCache({{"FullName", "T"}}, bundle.platform)), std::out_of_range);
  EXPECT_THROW(Open({{"CacheSizeGigabytes", "much"}}), std::invalid_argument);
  EXPECT_THROW(Open({{"CacheRetentionSeconds", "99999999999"}}), std::out_of_range);
  using Row = std::pair<const char*, std::int64_t>;
  bundle.drives.Add(tree.Root());
  const struct {
    const char* text;
    std::uint64_t disk, limit;  // gigabytes; 0: not known
  } sizes[] = {{"0", 0, 50}, {"1", 0, 1},    {"1024", 0, 1024}, {"1025", 0, 50},
               {"2x", 0, 2}, {"50", 20, 18}, {"50", 60, 50}};
  for (const auto& [text, disk, limit] : sizes) {
    bundle.drives.SetSpace(tree.Root(), {disk * kGigabyte, 0, 0});
    AwsCache cache = Open({{"CacheSizeGigabytes", text}});
    Add(cache, "old", limit * kGigabyte - 1);
    Add(cache, "fits", 1);
    EXPECT_TRUE(fs::exists(tree.Path("old"))) << text;
    Add(cache, "over", 1);
    EXPECT_FALSE(fs::exists(tree.Path("old"))) << text;
  }
  for (const auto& [text, seconds] : {Row{"3599", 86400}, {"3600", 3600}, {"604800", 604800}}) {
    AwsCache cache = Open({{"CacheRetentionSeconds", text}});
    Add(cache, "old", 1);
    clock.Advance((seconds - 1) * 1000);
    Add(cache, "new", 1);
    EXPECT_TRUE(fs::exists(tree.Path("old"))) << text;
    clock.Advance(1000);
    Add(cache, "newer", 1);
    EXPECT_FALSE(fs::exists(tree.Path("old"))) << text;
  }
}

TEST_F(Cache, TrimsToNineTenthsOnceItIsFullAndKeepsAFileThatIsLargerThanTheLimit) {
  AwsCache cache = Open({{"CacheSizeGigabytes", "1"}});
  for (int i = 0; i < 10; ++i) {
    Add(cache, std::to_string(i), kGigabyte / 10);
    clock.Advance(1000);
  }
  EXPECT_EQ(tree.Files().size(), 10u);
  cache.Use({tree.Path("1")});
  Add(cache, "last", kGigabyte / 10);
  EXPECT_EQ(tree.Files().size(), 9u);  // the sum with the new one is below the target again
  EXPECT_TRUE(fs::exists(tree.Path("1")) && !fs::exists(tree.Path("2")));
  EXPECT_EQ(host.CountLines(0, " count=8 *total="), 1u);
  Add(cache, "huge", 3 * kGigabyte);
  EXPECT_EQ(tree.Files(), Names{"huge"});
  EXPECT_EQ(host.CountLines(0, " size=3221225472 count=1 total=3221225472"), 1u);
}

TEST_F(Cache, IsOneForAMountedPathThroughAReconfiguration) {
  const ScannerProperties properties{{"FullyMountedPath", tree.Root()}};
  const auto cache = AwsCache::Of(properties, bundle.platform);
  EXPECT_EQ(AwsCache::Of({{"FullyMountedPath", tree.Root() + "//"}}, bundle.platform), cache);
}

TEST_F(Cache, RenewsAFileThatCameAgainAndNeverRemovesIt) {
  AwsCache cache = Open({{"CacheSizeGigabytes", "1"}});
  Add(cache, "again", kGigabyte / 2);
  clock.Advance(100'000'000);  // it has expired, and is the oldest
  tree.Write("again", "12345678");
  cache.Add(Entry("again", kGigabyte), 0);
  EXPECT_EQ(tree.Files(), Names{"again"});
  Add(cache, "next", 1);
  EXPECT_EQ(host.CountLines(0, " size=1 count=2 total=9"), 1u);
}

TEST_F(Cache, TriesAFileAgainThatCouldNotBeRemoved) {
  AwsCache cache = Open();
  tree.Write("stuck/below", "");  // a directory that isn't empty can't be removed
  cache.Add(Entry("stuck", 10), 0);
  clock.Advance(100'000'000);
  EXPECT_THROW(Add(cache, "new", 1), fs::filesystem_error);
  fs::remove_all(tree.Path("stuck"));  // by somebody else
  Add(cache, "new", 1);
  EXPECT_EQ(host.CountLines(0, "cache- file=" + tree.Path("stuck")), 1u);
  EXPECT_EQ(host.CountLines(0, " size=1 count=1 total=1"), 1u);
}

TEST_F(Cache, KeepsItsSumUnderConcurrentDownloads) {
  AwsCache cache = Open({{"CacheSizeGigabytes", "1"}});
  const std::uint64_t size = kGigabyte / 64;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 50; ++i) Add(cache, std::to_string(thread * 50 + i), size);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::size_t left = tree.Files().size();
  EXPECT_TRUE(left >= 57 && left <= 64) << left;
  Add(cache, "last", 0);
  const std::string total = std::to_string(left * size);
  EXPECT_TRUE(host.Lines().back().text.ends_with(" total=" + total)) << total;
}

}  // namespace
}  // namespace qvArchiving
