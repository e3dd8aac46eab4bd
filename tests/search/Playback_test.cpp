#include <random>

#include "tests/search/SearchFixture.h"

namespace qvsvr::kelvo {
namespace {

using Playback = SearchTest;

constexpr char kAll[] = "<Video><Input Number='0'/><Input Number='1'/></Video>";

TEST_F(Playback, InterleavesFilesByTimeAndTellsWhoseFrameItIs) {
  const auto first = Shots(kStart, 400, Repeat(10, "IPPPP"), 0);
  const auto second = Shots(kStart + 100, 700, Repeat(6, "IPPPP"), 0);
  const auto tie = Shots(kStart + 400, 100'000, "I", 0);
  Write(first, 0x00110000);
  Write(second, 0x00110100);
  Write(tie, 0x00110200);
  std::string devices;
  for (int n = 0; n < 3; ++n) {
    devices += "</Device><Device Number=\"" + std::to_string(n) + "\">" + Video(0);
  }
  Run(Request(1, kSecond0, kSecond0 + 100, 0, devices));
  std::int64_t last = 0;
  std::map<std::uint32_t, int> count;
  for (const Event& event : events) {
    if (event.kind != 'F') continue;
    const KelvoFrameHeader& header = event.request.u.Header;
    const std::int64_t time = std::int64_t{header.Seconds} * 1000 + header.Milliseconds;
    EXPECT_GE(time, last);
    last = time;
    ++count[event.request.Source];
  }
  EXPECT_EQ(count,
            (std::map<std::uint32_t, int>{{0x00110000, 50}, {0x00110100, 30}, {0x00110200, 1}}));
  // At the same moment the file that ends first goes first.
  const auto played = Played();
  const auto at = std::ranges::find(played, tie[0].Payload()) - played.begin();
  EXPECT_EQ(events[static_cast<std::size_t>(at) + 2].request.Source, 0x00110200u);
  EXPECT_EQ(host.CountLines(0, "SEARCH: Start playback"), 3u);
  EXPECT_EQ(host.CountLines(0, "ms local (50 frames)."), 1u);
}

TEST_F(Playback, EachStreamStartsAtItsOwnKeyFrame) {
  auto shots = Shots(kStart, 1000, Repeat(4, "IPPPPPPPPP"), 0);
  auto other = Shots(kStart + 500, 1000, "IPPPPPPIPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPPP", 1);
  shots.insert(shots.end(), other.begin(), other.end());
  std::ranges::stable_sort(shots, {}, &Shot::time);
  Write(shots);
  Run(Request(1, kSecond0 + 15, kSecond0 + 25, 0, kAll));
  std::vector<std::string> wanted;
  for (const Shot& shot : shots) {
    const UtcMs from = shot.stream == 0 ? kStart + 10'000 : kStart + 7'500;
    if (shot.time >= from && shot.time < kStart + 25'000) wanted.push_back(shot.Payload());
  }
  EXPECT_EQ(Played(), wanted);
  for (const auto& [input, first, last, count, flags] : Results()) {
    EXPECT_EQ(count, input == 0 ? 15 : 18);
    EXPECT_EQ(last, kSecond0 + 24);
  }
}

TEST_F(Playback, RandomRangesGiveTheFramesOfAModel) {
  std::mt19937 random(4);
  std::vector<Shot> shots;
  for (UtcMs time = kStart; time < kStart + 200'000; time += 50 + random() % 400) {
    const auto stream = static_cast<std::uint16_t>(random() % 2);
    const bool fresh =
        std::ranges::none_of(shots, [&](const Shot& s) { return s.stream == stream; });
    shots.push_back({stream, static_cast<std::uint16_t>(fresh || random() % 9 == 0 ? 1 : 2), time});
  }
  const std::string path = Write(shots);
  for (int n = 0; n < 60; ++n) {
    if (n == 30) boost::filesystem::remove(path + "i");
    const std::int64_t start = kSecond0 - 5 + static_cast<std::int64_t>(random() % 210);
    const std::int64_t end = start + 1 + static_cast<std::int64_t>(random() % 60);
    SCOPED_TRACE(std::to_string(start - kSecond0) + " to " + std::to_string(end - kSecond0));
    Run(Request(1, start, end, 0, Video(0)));
    // From the last key frame that isn't behind the first frame of the range.
    std::vector<Shot> model;
    for (const Shot& shot : shots) {
      if (shot.stream != 0 || shot.Second() >= end) continue;
      if (shot.type == 1 && (model.empty() || model.back().Second() < start)) model.clear();
      model.push_back(shot);
    }
    const std::vector<std::string> wanted = Payloads(model);
    const bool any = std::ranges::any_of(shots, [&](const Shot& s) {
      return s.stream == 0 && s.Second() >= start && s.Second() < end;
    });
    ASSERT_EQ(Played(), any ? wanted : std::vector<std::string>{});
  }
}

TEST_F(Playback, CancelOrErrorAtAnyEventEndsTheSearchWithoutAnEndEvent) {
  Write(Shots(kStart, 1000, "IPPPP"));
  const std::string request = Request(1, kSecond0, kSecond0 + 10, 0, Video(0));
  Run(request);
  const std::string whole = Order();
  ASSERT_EQ(whole, "PRFFFFFP");
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const std::uint32_t status : {1u, 2u, 0xFFu}) {
      host.ForgetTraffic();
      returned = status == 0xFF ? 5 : 0;
      answer = [&](std::size_t number, char) { return number == at ? status : 0; };
      Run(request);
      EXPECT_EQ(Order(), whole.substr(0, at + 1));
      EXPECT_EQ(host.CountLines(0, "00000007 search canceled"), status == 1 ? 1u : 0u);
      const char* const what = at == 0 ? "progress" : at == 1 ? "result" : at == 7 ? "end" : "pes";
      const std::string told = std::string("00000007 ") + what + " event ret " +
                               std::to_string(returned) + " error " + std::to_string(status);
      EXPECT_EQ(host.CountLines(75, told), status == 1 ? 0u : 1u) << told;
    }
  }
}

TEST_F(Playback, FileThatFailsInTheMiddleOwesItsEmptyEvents) {
  const auto shots = Shots(kStart, 1000, Repeat(2, "IPPPP"), 0);
  const std::string path = Write(shots);
  const auto later = Shots(kStart + 20'000, 1000, "IPP", 0);
  Write(later);
  boost::filesystem::resize_file(path, boost::filesystem::file_size(path) - 64 * 4);
  Run(Request(1, kSecond0, kSecond0 + 60, 0, Video(0)));
  EXPECT_EQ(Order(), "PRFFFFFFEEEEFFFP");
  const auto& last = events[7].request;
  for (std::size_t n = 8; n < 12; ++n) {
    KelvoHostRequest same = events[n].request;
    EXPECT_EQ(same.Length, 0u);
    same.Length = last.Length;
    EXPECT_EQ(std::memcmp(&same, &last, sizeof same), 0);
  }
  answer = [](std::size_t, char kind) { return kind == 'E' ? 1u : 0u; };
  host.ForgetTraffic();
  Run(Request(1, kSecond0, kSecond0 + 60, 0, Video(0)));
  EXPECT_EQ(Order(), "PRFFFFFFE");
  EXPECT_EQ(host.CountLines("canceled"), 0u);
}

TEST_F(Playback, FileThatVanishesEndsOnlyItselfAndADamagedStartCodeIsSentAsItStands) {
  const std::string path = Write(Shots(kStart, 1000, "IPP"));
  const std::string later = Write(Shots(kStart + 20'000, 1000, "IPP"));
  const std::string name = later.substr(tree.Root().size() + 1);
  std::string media = tree.Read(name);
  media[1978 + 64] = 'x';
  tree.Write(name, media);
  answer = [&](std::size_t, char kind) {
    if (kind == 'R') boost::filesystem::remove(path);
    return 0u;
  };
  Run(Request(1, kSecond0, kSecond0 + 60, 0, Video(0)));
  EXPECT_EQ(Order(), "PRFFFP");
  EXPECT_EQ(events[3].request.Length, 32u + 15u);
  EXPECT_EQ(host.CountLines(50, "00000007 open " + path + " error -2"), 1u);
}

TEST_F(Playback, FetchThatFailsEndsTheFileBehindWhatWasOnItsWay) {
  const auto shots = Shots(kStart, 1000, Repeat(80, "IPPPP"), 0);
  const std::string relative = Write(shots).substr(files.volumes[0].size());
  const std::string mount = tree.MakeDirectory("cache");
  const auto bucket = std::make_shared<testsupport::FakeScanner>(mount, "5");
  for (const char* suffix : {"", "i"}) {
    bucket->files[mount + relative + suffix] = tree.Read("a/" + relative + suffix);
  }
  boost::filesystem::remove_all(files.volumes[0]);
  files.targets = {bucket};
  files.mounted = {mount};
  answer = [&](std::size_t, char kind) {
    if (kind == 'F') bucket->failing = true;
    return 0u;
  };
  Run(Request(1, kSecond0, kSecond0 + 400, 0, Video(0)));
  // Two ranges of 151 frames.
  EXPECT_EQ(Order(), "PR" + std::string(302, 'F') + std::string(98, 'E') + "P");
}

TEST_F(Playback, SurvivesDamagedFiles) {
  const std::string path = Write(Shots(kStart, 100, Repeat(20, "IPPPP"), 0));
  const std::string name = path.substr(tree.Root().size() + 1);
  const std::string media = tree.Read(name), index = tree.Read(name + "i");
  std::mt19937 random(9);
  for (int round = 0; round < 300; ++round) {
    std::string bad = index, badMedia = media;
    for (int n = 0; n < 3; ++n) bad[random() % bad.size()] ^= static_cast<char>(1u << random() % 8);
    badMedia[random() % media.size()] ^= static_cast<char>(random());
    std::string& cut = round % 2 == 0 ? bad : badMedia;
    if (round % 3 == 0) cut.resize(random() % cut.size());
    tree.Write(name + "i", bad);
    tree.Write(name, badMedia);
    for (const int type : {1, 0}) {
      Run(Request(type, kSecond0, kSecond0 + 60, 0, Video(0)));
      ASSERT_TRUE(Order().ends_with("P"));
      ASSERT_LE(Played().size(), 100u);
    }
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
