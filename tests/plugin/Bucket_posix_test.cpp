#include <array>

#include "hostkit/SearchXml.h"
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
  const std::int64_t second = kEvening / 1000;
  const auto list = Ask(0, second - 10, second + 1000, {camera});
  const auto play = Ask(1, second - 10, second + 1000, {camera});
  EXPECT_TRUE(Search(play).frames.empty()) << "nothing is left on the drive";
  Announce();
  (void)Fetches();

  // A listing needs the indexes and the heads.
  const auto listed = Search(list);
  EXPECT_EQ(hostkit::ParseResults(listed.results.at(0)).rows.at(0).start, second);
  auto fetches = Fetches();
  EXPECT_EQ(fetches.size(), objects.size());
  for (const Fetch& fetch : fetches) {
    EXPECT_EQ(fetch.offset, 0u) << fetch.name;
    EXPECT_EQ(fetch.bytes, IsIndex(fetch) ? objects.at(fetch.name) : kMediaHead) << fetch.name;
  }

  // Pictures come one by one.
  const auto thumbs =
      Search(Ask(1, second - 10, second + 1000, {camera}, {second + 7, second + 402}));
  ExpectPlayed(thumbs.frames, std::array{frames[5], frames[400]});
  fetches = Fetches();
  ASSERT_EQ(fetches.size(), 2u);
  for (std::size_t n = 0; n < 2; ++n) {
    EXPECT_EQ(fetches[n].bytes, OnDisk(thumbs.frames[n].event.Length));
  }

  // Playback reads ahead. One more range is needed wherever a picture was there already.
  const auto all = Search(play);
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
    ExpectPlayed(Search(play).frames, std::span(frames).first(kept));
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
  Start({camera, other});
  GiveAll(frames);
  GiveAll(others);
  Finish();
  Start();
  MoveToBucket();
  Announce(-1);
  const auto ask = Ask(1, kEvening / 1000, kEvening / 1000 + 600, {camera});
  EXPECT_TRUE(Search(ask).frames.empty());
  Announce(0);
  auto without = ask;
  without.insert(without.find("<Devices"),
                 "<Targets><Archive ID=\"4\" Search=\"0\"/><Local Search=\"1\"/></Targets>");
  EXPECT_TRUE(Search(without).frames.empty());
  EXPECT_TRUE(Fetches().empty());
  EXPECT_FALSE(Search(ask).frames.empty());
  EXPECT_EQ(Fetches().size(), 3u) << "an index, a head and one range of the camera asked for";
  EXPECT_EQ(CountLog("kelvotestsecret"), 0);
}

// The footage of one camera, five frames a second.
class BucketPlayback : public BucketSearch {
 protected:
  void Archive(int groups, std::size_t frameSize) {
    frames = MakeFrames(VideoProvider(camera), kEvening, 200, Times(groups, "IPBPB"), frameSize);
    Record(camera, frames);
    MoveToBucket();
    Announce();
  }
  // All but the last group, which was undecided.
  void ExpectPlayedWhole() {
    const auto played = Search(ask).frames;
    ExpectPlayed(played, std::span(frames).first(played.size()));
    EXPECT_GE(played.size() + 5, frames.size());
  }

  const CameraConfig camera = Camera();
  const std::string ask = Ask(1, kEvening / 1000 - 10, kEvening / 1000 + 1000, {camera});
  std::vector<Frame> frames;
};

TEST_F(BucketPlayback, StopsWithTheHostAndLeavesNoHalfFrame) {
  Archive(200, 20'000);
  for (const int stopAt : {1, 200, 400}) {
    const int earlier = Downloads();
    SearchUntil(ask, stopAt);
    const int begun = Downloads() - earlier;
    EXPECT_TRUE(stopAt > 1 || begun == 4) << begun << ", not index, head and two ranges";
    // At once again, while what was stopped may be ending still.
    ExpectPlayedWhole();
    boost::filesystem::remove_all(cache);
  }
}

// As another playback of the same footage leaves it for a moment.
TEST_F(BucketPlayback, FetchesTheRestOfAFrameThatIsHereInPart) {
  Archive(40, 9000);
  ExpectPlayedWhole();
  const std::string media = "copies/" + qv::kelvo::FilesBelow(cache, ".ps").at(0);
  std::string copy = tree.Read(media);
  const std::size_t middle = testsupport::ReadPs(tree.Path(media)).frames.at(20).offset + 4000;
  std::fill(copy.begin() + static_cast<std::ptrdiff_t>(middle), copy.end(), '\0');
  tree.Write(media, copy);
  ExpectPlayedWhole();
}

// Ranges of more than 5 MiB reach the local copy in several parts.
TEST_F(BucketPlayback, LargeRangesAheadComeWholeWhenTheHostStops) {
  Archive(100, 80'000);
  SearchUntil(ask, 160);
  const int begun = Downloads();
  EXPECT_GE(begun, 5) << "index, head and three ranges";
  const std::string done = "] DownloadFile key=";
  while (CountLog(done) < begun) ASSERT_TRUE(host->WaitForLog(done)) << "one didn't come";
  ExpectPlayedWhole();
}

TEST_F(BucketSearch, EndsAFileWhoseObjectIsGoneOrCut) {
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), kEvening, kSecond, Times(30, "IPBPB"), 900);
  Record(camera, frames);
  MoveToBucket();
  Announce();
  ASSERT_FALSE(Search(Ask(0, kEvening / 1000, kEvening / 1000 + 600, {camera})).results.empty());

  // The listing's copies stay; the media behind them shrinks to its head.
  const std::string media = qv::kelvo::FilesBelow(cache, ".ps").at(0);
  tree.Write("cut", tree.Read("copies/" + media).substr(0, kMediaHead));
  Put(tree.Path("cut"), media);
  const auto cut = Search(Ask(1, kEvening / 1000, kEvening / 1000 + 600, {camera}));
  EXPECT_EQ(cut.order.find('F'), std::string::npos) << cut.order;
  EXPECT_TRUE(cut.order.ends_with("P")) << cut.order;
  EXPECT_GE(CountLog("open " + cache), 1);
}

}  // namespace
}  // namespace plugintest
