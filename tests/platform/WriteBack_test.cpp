#include "platform/WriteBack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>

#include "tests/support/TestBundle.h"

namespace qv::kelvo {
namespace {

// Tells what was asked of it, and waits where it is told to.
class ToldSync : public DiskSync {
 public:
  int Start(const std::string& path) override { return Note("start " + path); }
  int Finish(const std::string& path) override { return Note("finish " + path); }
  int FinishDirectory(const std::string& path) override { return Note("names " + path); }

  // The calls up to the one given, which are forgotten then; empty after 10 s without it.
  std::vector<std::string> Until(const std::string& last) {
    std::unique_lock lock(mutex);
    const auto isThere = [&] { return std::ranges::find(calls, last) != calls.end(); };
    if (!changed.wait_for(lock, std::chrono::seconds(10), isThere)) return {};
    const auto end = std::ranges::find(calls, last) + 1;
    std::vector<std::string> taken(calls.begin(), end);
    calls.erase(calls.begin(), end);
    return taken;
  }
  void Block(const std::string& call) {
    const std::lock_guard lock(mutex);
    blocked = call;
    changed.notify_all();
  }
  int Note(const std::string& call) {
    std::unique_lock lock(mutex);
    calls.push_back(call);
    changed.notify_all();
    changed.wait(lock, [&] { return blocked.empty() || blocked != call; });
    return error;
  }

  std::atomic<int> error{0};

 private:
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::string> calls;
  std::string blocked;
};

class WriteBackTest : public testing::Test {
 protected:
  using Calls = std::vector<std::string>;
  void Pass() {
    bundle.clock.Advance(WriteBack::kPeriodNs / 1'000'000);
    writing.Look();
  }
  void Open(const std::string& root, const std::string& name) {
    writing.Opened(root, root + name + ".ps", root + name + ".psi");
  }

  TestBundle bundle;
  ToldSync sync;
  Platform platform{bundle.clock,
                    bundle.drives,
                    SystemPlatform().directories,
                    bundle.files,
                    SystemPlatform().durableFiles,
                    sync};
  WriteBack writing{platform, [this](const std::string&, int error) {
                      sync.Note("told " + std::to_string(error));
                    }};
};

TEST_F(WriteBackTest, CompletesOpenPairsEveryFewSecondsAndClosedOnesOnce) {
  Open("/d/", "2025/1");
  Open("/d/", "2025/2");
  Pass();
  const Calls media = {"start /d/2025/1.ps", "start /d/2025/2.ps", "finish /d/2025/1.ps",
                       "finish /d/2025/2.ps"};
  Calls whole = media;
  for (const char* const how : {"start ", "finish "}) {
    for (const char* const file : {"1", "2"})
      whole.push_back(how + ("/d/2025/" + (file + std::string(".psi"))));
  }
  Calls first = whole;
  first.insert(first.end(), {"names /d", "names /d/2025"});
  EXPECT_EQ(sync.Until("names /d/2025"), first);
  writing.Closed("/d/2025/1.ps");
  EXPECT_TRUE(writing.IsAtWork("/d/2025/1.ps"));
  Pass();
  EXPECT_EQ(sync.Until("finish /d/2025/2.psi"), whole);  // the names are there already
  Open("/d/", "2025/3");
  Pass();
  EXPECT_EQ(sync.Until("names /d/2025").front(), "start /d/2025/2.ps");
  EXPECT_FALSE(writing.IsAtWork("/d/2025/1.ps"));
  writing.Stop();  // what is open then, too
  EXPECT_EQ(sync.Until("finish /d/2025/3.psi").size(), 8u);
}

TEST_F(WriteBackTest, NobodyWaitsForADriveThatHangs) {
  sync.Block("finish /a/1.ps");
  Open("/a/", "1");
  Open("/b/", "1");
  Pass();
  EXPECT_FALSE(sync.Until("finish /a/1.ps").empty());
  Open("/a/", "2");
  writing.Closed("/a/1.ps");
  for (int i = 0; i < 2; ++i) {
    Pass();
    EXPECT_FALSE(sync.Until("finish /b/1.psi").empty());
  }
  sync.Block("");
}

TEST_F(WriteBackTest, TellsOfADriveThatFailsButNotOfAFileThatIsGone) {
  Open("/a/", "1");
  std::vector<std::string> all;
  for (const int error : {2, 5, 0}) {
    sync.error = error;
    Pass();
    for (const auto& call : sync.Until(error == 2 ? "names /a" : "told " + std::to_string(error))) {
      if (call.starts_with("told")) all.push_back(call);
    }
  }
  EXPECT_EQ(all, (Calls{"told 5", "told 0"}));
}

}  // namespace
}  // namespace qv::kelvo
