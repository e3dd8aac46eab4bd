#include <atomic>
#include <iostream>
#include <random>
#include <set>
#include <thread>

#include "tests/plugin/SearchFixture.h"

// Searches and playback through the exports, over what the plug-in itself recorded.
namespace plugintest {
namespace {

constexpr std::int64_t kSecond = 1000, kMinute = 60 * kSecond;
constexpr std::int64_t kEvening = 1'750'003'080'000;   // 2025-06-15 15:58:00 UTC, 17:58 local
constexpr std::int64_t kMidnight = 1'750'024'800'000;  // 2025-06-16 00:00:00 local

TEST_F(SearchTest, PlaysBackWhatWasRecordedOverRollOversAndMidnight) {
  for (const std::int64_t first : {kEvening, kMidnight - 6 * kMinute}) {
    SCOPED_TRACE(first);
    const auto camera = Camera();
    auto frames = MakeFrames(VideoProvider(camera), first, kSecond, Times(150, "IPBPB"), 400);
    for (std::size_t n = 0; n < frames.size(); ++n) {
      auto& header = frames[n].header;
      header.ExtensionLength = static_cast<std::uint32_t>(n % 88);
      for (std::size_t i = 0; i < 128; ++i) header.Extension[i] = static_cast<std::uint8_t>(n + i);
      header.FrameFlags = static_cast<std::uint8_t>(n / 100 % 8 << 5);
      header.Milliseconds = static_cast<std::uint16_t>(n % 1000);
    }
    Record(camera, frames);
    const auto all = Search(Ask{1, first / 1000 - 10, first / 1000 + 1000}.Video(camera));
    const std::size_t kept = all.frames.size();
    ASSERT_GE(kept + 10, frames.size());  // the last group was still undecided at the end
    ExpectPlayed(all.frames, std::span(frames).first(kept));
    EXPECT_TRUE(all.order.starts_with("P")) << all.order;
    EXPECT_TRUE(all.order.ends_with("FP")) << all.order;
    ASSERT_EQ(all.results.size(), 1u);

    // From the middle of a group: its key frame leads in; the end is not part of the range.
    const auto part = Search(Ask{1, first / 1000 + 302, first / 1000 + 317}.Video(camera));
    ExpectPlayed(part.frames, std::span(frames).subspan(300, 17));
    Stop();
    for (const auto& file : tree.FilesEndingIn("")) boost::filesystem::remove(tree.Path(file));
  }
}

TEST_F(SearchTest, GivesBackEveryCodecWithItsAudio) {
  std::int64_t first = kEvening;
  for (int standard = 1; standard <= 5; ++standard, first += 20 * kMinute) {
    SCOPED_TRACE(standard);
    auto camera = Camera();
    camera.standard = standard;
    camera.audio = true;
    camera.audioStandard = standard % 4 + 1;
    camera.schedule = {{0, 167, kAlways}};
    const auto video = MakeFrames(VideoProvider(camera), first, 100, Times(20, "IPBPB"), 70'000);
    const auto audio = MakeFrames(AudioProvider(camera), first + 20, 100, Times(100, "A"), 320);
    std::vector<Frame> frames;
    for (std::size_t n = 0; n < video.size(); ++n) {
      frames.push_back(video[n]);
      frames.push_back(audio[n]);
    }
    bundle.clock.SetNow(first);
    Start();
    Configure({camera});
    GiveAll(frames);
    Finish();
    Start();
    const auto heard = Search(Ask{1, first / 1000, first / 1000 + 60}.Video(camera).Audio(camera));
    std::vector<PlayedFrame> playedVideo, playedAudio;
    for (const auto& frame : heard.frames) {
      (frame.event.Source == VideoProvider(camera) ? playedVideo : playedAudio).push_back(frame);
    }
    ASSERT_GE(playedVideo.size(), 95u);  // the last group was still undecided
    ASSERT_GE(playedAudio.size(), 95u);
    ExpectPlayed(playedVideo, std::span(video).first(playedVideo.size()));
    ExpectPlayed(playedAudio, std::span(audio).first(playedAudio.size()));
    const auto standards = heard.All("Standard");
    EXPECT_EQ(std::set<long>(standards.begin(), standards.end()),
              (std::set<long>{standard, camera.audioStandard}));
  }
}

TEST_F(SearchTest, PlaysWhatIsBeingRecordedRightNow) {
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), kEvening, 100, Times(60, "IPBPB"), 300);
  bundle.clock.SetNow(kEvening);
  Start();
  Configure({camera});
  std::size_t seen = 0;
  for (std::size_t n = 0; n < frames.size(); n += 50) {
    GiveAll(std::span(frames).subspan(n, 50));
    Sync();
    openWriters = 2;
    const auto heard = Search(Ask{1, kEvening / 1000, kEvening / 1000 + 60}.Video(camera));
    ASSERT_GE(heard.frames.size(), seen);
    seen = heard.frames.size();
    ExpectPlayed(heard.frames, std::span(frames).first(seen));
    ASSERT_GE(seen + 10, n + 50);
  }
}

TEST_F(SearchTest, RequestsWithoutATextOrAPluginLeaveTheReplyAlone) {
  const std::string text = Ask{0, 0, 1}.Xml();
  KelvoReadBlock block{};
  KelvoReadReply reply{};
  const auto read = [&](const char* payload, std::size_t length) {
    block.Payload = payload;
    block.Length = static_cast<std::uint32_t>(length);
    reply.Result = 77;
    EXPECT_EQ(host->Raw().Read(&block, &reply), 0u);
    return reply.Result;
  };
  EXPECT_EQ(read(text.data(), text.size()), 77u);
  Start();
  EXPECT_EQ(read(nullptr, 5), 77u);
  EXPECT_EQ(read(text.data(), 0), 77u);
  EXPECT_EQ(read(text.data(), text.size()), 0u);
  EXPECT_EQ(host->Raw().Read(nullptr, nullptr), 0u);
}

TEST_F(SearchTest, HostThatHasHadEnoughHearsNoMore) {
  const auto camera = Camera();
  Record(camera, MakeFrames(VideoProvider(camera), kEvening, kSecond, Times(80, "IPBPB"), 300));
  for (const auto& [type, moments] :
       {std::pair{0, std::vector<std::int64_t>{}}, {1, {}}, {1, {kEvening / 1000 + 20}}}) {
    const Ask ask =
        Ask{type, kEvening / 1000 - 10, kEvening / 1000 + 500}.Video(camera, 0, moments);
    const std::string whole = Search(ask).order;
    ASSERT_EQ(whole.find('F') != whole.npos, type != 0) << whole;
    for (std::size_t event = 1; event <= whole.size(); ++event) {
      for (const std::uint32_t answer : {1u, 2u}) {
        ASSERT_EQ(Search(ask.Xml(), static_cast<int>(event), answer).order, whole.substr(0, event));
      }
    }
    EXPECT_EQ(Search(ask).order, whole);
  }
}

TEST_F(SearchTest, PlaysWhatIsLeftOfDamagedRecordings) {
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), kEvening, 100, Times(30, "IPBPB"), 300);
  Record(camera, frames);
  const std::string name = tree.FilesEndingIn(".ps").at(0);
  const std::string media = tree.Read(name), index = tree.Read(name + "i");
  const Ask list = Ask{0, kEvening / 1000 - 10, kEvening / 1000 + 60}.Video(camera);
  Ask play = list;
  play.type = 1;
  const std::size_t all = Search(play).frames.size();
  ASSERT_GE(all, 140u);

  for (std::size_t cut = 1; cut <= 4096; cut += 61) {
    SCOPED_TRACE(cut);
    tree.Write(name, media.substr(0, media.size() - cut));
    Heard heard = Search(play);
    ASSERT_EQ(heard.frames.size(), all);  // with an empty event for each that is lost
    const std::size_t whole = heard.order.find('E') - heard.order.find('F');
    ASSERT_LT(whole, all);
    heard.frames.resize(whole);
    ExpectPlayed(heard.frames, std::span(frames).first(whole));
    tree.Write(name, media);
    tree.Write(name + "i", index.substr(0, index.size() - cut));
    heard = Search(play);
    ExpectPlayed(heard.frames, std::span(frames).first(heard.frames.size()));
    ASSERT_GE(heard.frames.size() * 32 + cut + 32, all * 32);
    tree.Write(name + "i", index);
  }

  const auto seed = std::random_device{}();
  std::cout << "seed " << seed << std::endl;
  std::mt19937 random(seed);
  for (int round = 0; round < 150; ++round) {
    for (const auto& [file, content] : {std::pair{name, media}, {name + "i", index}}) {
      std::string bad = content;
      for (int n = 0; n < 3; ++n) {
        bad[random() % (n == 0 ? 1200 : bad.size())] ^= static_cast<char>(1u << random() % 8);
      }
      tree.Write(file, bad);
    }
    for (const Ask& ask : {list, play}) ASSERT_TRUE(Search(ask).order.ends_with("P"));
  }
}

// Eight searches at once, while frames come in, the configuration changes and files disappear.
class SearchCrowdTest : public PluginTest {};

TEST_F(SearchCrowdTest, SearchesGoOnWhileEverythingElseDoes) {
  std::atomic<int> ends{0}, played{0};
  host->onSearch = [&](const KelvoHostRequest& request) {
    if (request.SubCode == KELVO_SUB_SEARCH_FRAME) {
      ++played;
      if (request.Length >= 3) {
        const auto* bytes = static_cast<const unsigned char*>(request.Payload);
        EXPECT_EQ(bytes[2], 1);
      }
    } else if (request.SubCode == KELVO_SUB_SEARCH_RESULT) {
      ++ends;
    }
    return 0u;
  };
  Start();
  const auto camera = Camera();
  Configure({camera});
  const std::int64_t now = NowMs();
  GiveAll(MakeFrames(VideoProvider(camera), now, 10, Times(100, "IPBPB"), 500));
  Sync();
  std::atomic<bool> stop{false};
  std::vector<std::thread> searchers;
  for (std::uint32_t id = 1; id <= 8; ++id) {
    searchers.emplace_back([&, id] {
      const int type = id % 2;
      const std::string xml = Ask{type, now / 1000 - 60, now / 1000 + 600}.Video(camera).Xml();
      do {
        host->Read(xml, id);
      } while (!stop);
    });
  }
  for (int round = 0; round < 8; ++round) {
    GiveAll(
        MakeFrames(VideoProvider(camera), now + 10'000 * (round + 1), 10, Times(40, "IPBPB"), 500));
    Configure({camera});  // ends the file and begins another
    const auto media = tree.FilesEndingIn(".ps");
    if (media.size() > 2) {
      for (const char* suffix : {"i", ""}) boost::filesystem::remove(tree.Path(media[0]) + suffix);
    }
  }
  stop = true;
  for (auto& searcher : searchers) searcher.join();
  EXPECT_GE(ends, 8);
  EXPECT_GT(played, 100);
}

}  // namespace
}  // namespace plugintest
