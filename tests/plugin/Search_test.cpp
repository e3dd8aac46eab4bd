#include <atomic>
#include <future>
#include <thread>

#include "tests/plugin/SearchFixture.h"

// Searches and playback through the exports, over what the plug-in itself recorded.
namespace plugintest {
namespace {

constexpr std::int64_t kSecond = 1000;
constexpr std::int64_t kEvening = 1'750'003'080'000;  // 2025-06-15 15:58:00 UTC, 17:58 local
constexpr std::int64_t kMidnight = 1'750'024'800;     // 2025-06-16 00:00:00 local

TEST_F(SearchTest, PlaysBackWhatWasRecordedOverRollOversAndMidnight) {
  const std::int64_t first = kMidnight - 360;
  const auto camera = Camera();
  auto frames =
      MakeFrames(VideoProvider(camera), first * kSecond, kSecond, Times(150, "IPBPB"), 400);
  for (std::size_t n = 0; n < frames.size(); ++n) {
    auto& header = frames[n].header;
    header.ExtensionLength = static_cast<std::uint32_t>(n % 88);
    for (std::size_t i = 0; i < 128; ++i) header.Extension[i] = static_cast<std::uint8_t>(n + i);
    header.FrameFlags = static_cast<std::uint8_t>(n / 100 % 8 << 5);
    header.Milliseconds = static_cast<std::uint16_t>(n % 1000);
  }
  Record(camera, frames);
  const auto all = Search(Ask(1, first - 10, first + 1000, {camera}));
  ASSERT_GE(all.frames.size() + 10, frames.size());  // the last group was undecided at the end
  ExpectPlayed(all.frames, std::span(frames).first(all.frames.size()));
  EXPECT_TRUE(all.order.starts_with("P")) << all.order;
  EXPECT_TRUE(all.order.ends_with("FP")) << all.order;
  EXPECT_EQ(all.results.size(), 1u);

  // From the middle of a group: its key frame leads in; the end is not part of the range.
  const auto part = Search(Ask(1, first + 302, first + 317, {camera}));
  ExpectPlayed(part.frames, std::span(frames).subspan(300, 17));
}

TEST_F(SearchTest, StopEndsItAtItsNextEventAndUnloadWaitsForThat) {
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), Now(), 40, Times(10, "IPPP"), 300);
  const std::string request = Ask(1, TimeOf(frames[0]) / 1000 - 1, Now() / 1000 + 60, {camera});
  Record(camera, frames);
  for (const bool close : {true, false}) {
    std::promise<void> reached, gate;
    int heard = 0;
    host->onSearch = [&](const KelvoHostRequest& event) {
      if (event.SubCode != KELVO_SUB_SEARCH_FRAME || ++heard != 3) return 0u;
      reached.set_value();
      gate.get_future().wait();
      return 0u;
    };
    std::thread reader([&] { host->Read(request, 7); });
    reached.get_future().wait();
    if (close) host->Close();
    std::atomic<bool> gone{false};
    std::thread unloader([&] {
      host->Unload();
      gone = true;
    });
    while (host->WriteXml(KELVO_WRITE_ACTION, "<qDVR/>")) std::this_thread::yield();
    EXPECT_FALSE(gone);
    gate.set_value();
    reader.join();
    unloader.join();
    EXPECT_EQ(heard, 3);
    Start();
  }
}

TEST_F(SearchTest, PlaysWhatIsBeingRecordedRightNow) {
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), kEvening, 100, Times(60, "IPBPB"), 300);
  bundle.clock.SetNow(kEvening);
  Start({camera});
  openWriters = 2;
  for (std::size_t n = 0; n < frames.size(); n += 50) {
    GiveAll(std::span(frames).subspan(n, 50));
    Sync();
    const auto heard = Search(Ask(1, kEvening / 1000, kEvening / 1000 + 60, {camera}));
    ASSERT_GE(heard.frames.size() + 10, n + 50);
    ExpectPlayed(heard.frames, std::span(frames).first(heard.frames.size()));
  }
}

TEST_F(SearchTest, FindsEveryMinuteThatWaitedForAnAlarm) {
  for (const int seconds : {300, 600}) {
    SCOPED_TRACE(seconds);
    const auto camera = Camera(seconds / 300);
    const std::int64_t begin = kEvening / 1000 + 7200 * (seconds / 300);
    const auto frames =
        MakeFrames(VideoProvider(camera), begin * kSecond, kSecond, Times(500, "IPPPP"), 40);
    bundle.clock.SetNow(begin * kSecond);
    Start({camera}, seconds);
    GiveInTime(frames);
    Sync();
    openWriters = 2;
    for (std::int64_t minute = 0; minute < 30; ++minute) {
      const std::int64_t first = begin + minute * 60;
      const auto heard = Search(Ask(1, first, first + 60, {camera}));
      ASSERT_NO_FATAL_FAILURE(ExpectPlayed(
          heard.frames, std::span(frames).subspan(static_cast<std::size_t>(minute) * 60, 60)))
          << minute;
    }
    openWriters = 0;
    Stop();
  }
}

}  // namespace
}  // namespace plugintest
