#include <boost/filesystem.hpp>

#include "tests/plugin/BucketFixture_posix.h"

// Footage that lies in a bucket only, searched and played back through the exports.
namespace plugintest {
namespace {

constexpr std::int64_t kSecond = 1000;
constexpr std::int64_t kEvening = 1'750'003'080'000;  // 2025-06-15 15:58:00 UTC, 17:58 local
constexpr std::uint64_t kMediaHead = 1978;

bool IsIndex(const Fetch& fetch) {
  return fetch.name.ends_with(".psi");
}

// Frames are padded to 64 bytes.
std::uint64_t OnDisk(std::uint64_t packet) {
  return (packet + 63) / 64 * 64;
}

TEST_F(BucketSearch, FetchesWhatIsLookedAtAndPlaysItBackByteForByte) {
  const auto camera = Camera();
  const auto frames =
      MakeFrames(VideoProvider(camera), kEvening, kSecond, Times(140, "IPBPB"), 400);
  Record(camera, frames);
  const auto objects = MoveToBucket();
  ASSERT_EQ(objects.size(), 6u);
  std::uint64_t mediaBytes = 0;
  for (const auto& [name, size] : objects) {
    if (name.ends_with(".ps")) mediaBytes += size;
  }
  const Ask range{1, kEvening / 1000 - 10, kEvening / 1000 + 1000};
  EXPECT_TRUE(Search(Ask(range).Video(camera)).frames.empty()) << "nothing is left on the drive";
  Announce();
  (void)Fetches();

  // A listing needs the indexes and the heads.
  Ask list = Ask(range).Video(camera);
  list.type = 0;
  const auto listed = Search(list);
  EXPECT_EQ(listed.All("Start").front(), kEvening / 1000);
  auto fetches = Fetches();
  EXPECT_EQ(fetches.size(), objects.size());
  for (const Fetch& fetch : fetches) {
    EXPECT_EQ(fetch.offset, 0u) << fetch.name;
    EXPECT_EQ(fetch.bytes, IsIndex(fetch) ? objects.at(fetch.name) : kMediaHead) << fetch.name;
  }

  // Pictures come one by one.
  const std::int64_t second = kEvening / 1000;
  const auto thumbs = Search(Ask(range).Video(camera, 0, {second + 7, second + 402}));
  ASSERT_EQ(thumbs.frames.size(), 2u);
  ExpectPlayed({thumbs.frames[0]}, std::span(frames).subspan(5, 1));
  ExpectPlayed({thumbs.frames[1]}, std::span(frames).subspan(400, 1));
  fetches = Fetches();
  ASSERT_EQ(fetches.size(), 2u);
  for (std::size_t n = 0; n < 2; ++n) {
    EXPECT_EQ(fetches[n].bytes, OnDisk(thumbs.frames[n].event.Length));
  }

  // Playback reads ahead. One more range is needed wherever a picture was there already.
  const auto all = Search(Ask(range).Video(camera));
  const std::size_t kept = all.frames.size();
  ASSERT_GE(kept + 5, frames.size());
  ExpectPlayed(all.frames, std::span(frames).first(kept));
  fetches = Fetches();
  EXPECT_GE(fetches.size(), kept / 151);
  EXPECT_LE(fetches.size(), kept / 151 + 3);  // files
  std::uint64_t bytes = 0;
  for (const Fetch& fetch : fetches) {
    EXPECT_FALSE(IsIndex(fetch)) << fetch.name;
    EXPECT_LE(fetch.bytes, 151 * OnDisk(500)) << fetch.name;
    bytes += fetch.bytes;
  }
  EXPECT_LE(bytes, mediaBytes - 3 * kMediaHead) << "no frame comes twice";

  // From then on it is local, also for a plug-in that starts anew.
  for (int round = 0; round < 2; ++round) {
    ExpectPlayed(Search(Ask(range).Video(camera)).frames, std::span(frames).first(kept));
    EXPECT_EQ(Search(list).results, listed.results);
    EXPECT_TRUE(Fetches().empty());
    Stop();
    Start();
    Announce();
  }
}

TEST_F(BucketSearch, SearchesOnlyWhatIsAccessibleAndAskedFor) {
  const auto camera = Camera();
  const auto other = Camera(1);
  const auto frames = MakeFrames(VideoProvider(camera), kEvening, kSecond, Times(4, "IPBPB"));
  const auto others = MakeFrames(VideoProvider(other), kEvening, kSecond, Times(4, "IPBPB"));
  bundle.clock.SetNow(kEvening);
  Start();
  Configure({camera, other});
  GiveAll(frames);
  GiveAll(others);
  Finish();
  Start();
  openWriters = 0;
  MoveToBucket();
  Announce(-1);
  const Ask ask = Ask{1, kEvening / 1000, kEvening / 1000 + 600}.Video(camera);
  EXPECT_TRUE(Search(ask).frames.empty());
  Announce(0);
  Ask without = ask;
  without.inputs =
      "<Targets><Archive ID=\"4\" Search=\"0\"/><Local Search=\"1\"/></Targets>" + ask.inputs;
  EXPECT_TRUE(Search(without).frames.empty());
  EXPECT_TRUE(Fetches().empty());
  EXPECT_FALSE(Search(ask).frames.empty());
  EXPECT_EQ(Fetches().size(), 3u) << "an index, a head and one range of the camera asked for";
  EXPECT_EQ(CountLog("kelvotestsecret"), 0);
}

TEST_F(BucketSearch, StopsWithTheHostAndLeavesNoHalfFrame) {
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), kEvening, 200, Times(200, "IPBPB"), 20'000);
  Record(camera, frames);
  MoveToBucket();
  Announce();
  const Ask ask = Ask{1, kEvening / 1000 - 10, kEvening / 1000 + 1000}.Video(camera);
  const auto hear = host->onSearch;
  for (const int stopAt : {1, 200, 400}) {
    int count = 0;
    host->onSearch = [&](const KelvoHostRequest& request) {
      hear(request);
      return request.SubCode == KELVO_SUB_SEARCH_FRAME && ++count == stopAt ? 1u : 0u;
    };
    const std::string download = "] Download remote=";
    const int downloads = CountLog(download);
    EXPECT_EQ(Search(ask).order.back(), 'F');
    if (stopAt == 1) {
      EXPECT_EQ(CountLog(download), downloads + 4) << "index, head and two ranges";
    }
    host->onSearch = hear;
    // At once again, while what was stopped may be ending still.
    const auto played = Search(ask).frames;
    ExpectPlayed(played, std::span(frames).first(played.size()));
    EXPECT_GE(played.size() + 5, frames.size());
    boost::filesystem::remove_all(cache);
  }
}

TEST_F(BucketSearch, EndsAFileWhoseObjectIsGoneOrCut) {
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), kEvening, kSecond, Times(30, "IPBPB"), 900);
  Record(camera, frames);
  MoveToBucket();
  Announce();
  Ask list = Ask{0, kEvening / 1000, kEvening / 1000 + 600}.Video(camera);
  ASSERT_FALSE(Search(list).results.empty());

  // The listing's copies stay; the media behind them shrinks to its head.
  ReplaceMedia([](const std::string& content) { return content.substr(0, kMediaHead); });
  Ask play = list;
  play.type = 1;
  const auto cut = Search(play);
  EXPECT_EQ(cut.order.find('F'), std::string::npos) << cut.order;
  EXPECT_TRUE(cut.order.ends_with("P")) << cut.order;
  EXPECT_GE(CountLog("open " + cache), 1);
}

}  // namespace
}  // namespace plugintest
