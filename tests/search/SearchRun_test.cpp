#include <random>

#include "search/SearchResult.h"
#include "tests/search/SearchFixture.h"

namespace qvsvr::kelvo {
namespace {

class SearchRun : public SearchTest {
 protected:
  // The runs of one file, by the format's rule; or one for each stream.
  static std::vector<FileRun> RunsOf(const std::vector<Shot>& shots, bool wholeStreams) {
    std::vector<FileRun> runs;
    std::map<unsigned, std::pair<std::size_t, Shot>> open;
    for (const Shot& shot : shots) {
      const auto last = open.find(shot.stream);
      const bool goesOn =
          last != open.end() &&
          (wholeStreams || (last->second.second.flags == shot.flags &&
                            shot.time - last->second.second.time <= 1000 &&
                            shot.time / 86'400'000 == last->second.second.time / 86'400'000));
      const std::size_t run = goesOn ? last->second.first : runs.size();
      if (!goesOn) runs.push_back({static_cast<std::uint8_t>(shot.stream), 0, shot.Second(), 0});
      runs[run].flags |= shot.flags;
      runs[run].last = shot.Second();
      open[shot.stream] = {run, shot};
    }
    return runs;
  }

  // What a listing of video inputs 0 and 15 and audio input 15 has to tell.
  std::vector<Line> ListingModel(std::int64_t start, std::int64_t end, int resolution) {
    std::map<std::tuple<int, std::int64_t, unsigned>, Line> lines;
    for (const auto& shots : recordings) {
      const std::int64_t named = shots.front().Second();
      if (named + 300 < start || named >= end + 300) continue;
      for (const FileRun& run : RunsOf(shots, resolution >= shots.back().Second() - named)) {
        if (run.last < start || run.first >= end || run.stream == 1) continue;
        const int input = run.stream + (run.stream < 16 ? 0 : 84);
        const std::int64_t bucket = (run.first - start) / (resolution == 0 ? 1 : resolution);
        const Line line{input, run.first, run.last, 0, run.flags};
        const auto [entry, isNew] = lines.emplace(std::tuple{input, bucket, run.stream}, line);
        if (isNew) continue;
        auto& [i, first, last, count, flags] = entry->second;
        first = std::min(first, run.first);
        last = std::max(last, run.last);
        flags |= run.flags;
      }
    }
    std::vector<Line> all;
    for (const auto& entry : lines) all.push_back(entry.second);
    std::ranges::sort(all);
    return all;
  }

  std::vector<std::vector<Shot>> recordings;
};

TEST_F(SearchRun, ListingsAgreeWithAModel) {
  std::mt19937 random(11);
  UtcMs time = kStart - kStart % 1000;
  for (int file = 0; file < 10; ++file) {
    std::vector<Shot> shots;
    const UtcMs end = time + 20'000 + static_cast<UtcMs>(random() % 260'000);
    for (; time < end; time += random() % 30 == 0 ? 7'300 : 400) {
      static constexpr std::uint16_t kStreams[] = {0, 0, 15, 1, 31};
      const std::uint16_t stream = kStreams[random() % 5];
      const auto flags = static_cast<std::uint8_t>(time / 20'000 % 4 << 6);
      shots.push_back({stream, static_cast<std::uint16_t>(stream == 31 ? 0 : 1), time, flags});
    }
    recordings.push_back(shots);
    Write(shots);
    time += file % 3 == 0 ? 40'000 : 1'000;
    time -= time % 1000;
  }
  const std::int64_t first = recordings.front().front().Second();
  const std::int64_t length = recordings.back().back().Second() - first;
  for (int n = 0; n < 120; ++n) {
    const std::int64_t start = first - 400 + static_cast<std::int64_t>(random()) % (length + 800);
    const std::int64_t end =
        n % 4 == 0 ? start + 1 : start + static_cast<std::int64_t>(random()) % length;
    const int resolutions[] = {0, 1, static_cast<int>(end - start), 7, 60, 1'000'000};
    const int resolution = resolutions[n % 6];
    SCOPED_TRACE(std::to_string(start) + " " + std::to_string(end) + " " +
                 std::to_string(resolution));
    Run(Request(0, start, end, resolution, {Video(0), Video(15), Audio(15)}));
    ASSERT_EQ(Results(), ListingModel(start, end, resolution));
  }
}

TEST_F(SearchRun, RangesAtTheEdges) {
  // One file: key frames each ten seconds over 100 s, one P frame a second.
  const auto shots = Shots(kStart, 1000, Repeat(10, "IPPPPPPPPP"));
  Write(shots);
  constexpr std::int64_t kMin = -2'147'483'648, kMax = 2'147'483'647;
  const struct {
    std::int64_t start, end;
    int resolution;
    int frames, first;  // played back; the first one's second
    int thumbnail;
  } cases[] = {
      {kSecond0 + 40, kSecond0 + 41, 0, 1, 40, 0},  // on a key frame: no lead-in
      {kSecond0 + 40, kSecond0 + 40, 0, 0, 0, 0},
      {kSecond0 + 50, kSecond0 + 40, 0, 0, 0, 0},
      {kMin, kMax, 0, 100, 0, 0},
      {kMax, kMin, 0, 0, 0, 0},
      {kMax, kMax, 0, 0, 0, 0},
      {kSecond0, kSecond0 + 100, 99, 1, 0, 1},  // a picture per bucket
      {kSecond0 + 5, kSecond0 + 100, 20, 5, 10, 1},
      {kSecond0, kSecond0 + 100, 100, 100, 0, 0},  // no bucket shorter than the range
      {kSecond0, kSecond0 + 100, -7, 10, 0, 1},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::to_string(test.start) + " " + std::to_string(test.end) + " " +
                 std::to_string(test.resolution));
    Run(Request(1, test.start, test.end, test.resolution, {Video(0)}));
    ASSERT_EQ(Played().size(), static_cast<std::size_t>(test.frames));
    if (test.frames != 0) {
      EXPECT_EQ(Played().front(), shots[static_cast<std::size_t>(test.first)].Payload());
      const Line line = Results().front();
      EXPECT_EQ(std::get<1>(line), kSecond0 + test.first);
      EXPECT_EQ(std::get<3>(line), test.frames);
    }
    EXPECT_NE(ResultText().find("Thumbnail=\"" + std::to_string(test.thumbnail)),
              std::string::npos);
    EXPECT_TRUE(Order().ends_with("P"));
    Run(Request(0, test.start, test.end, test.resolution, {Video(0)}));
    const bool atPoint = test.start == test.end && test.start == kSecond0 + 40;
    EXPECT_EQ(!Results().empty(), test.frames != 0 || atPoint);
  }
}

TEST_F(SearchRun, PicturesAtMoments) {
  // Two files and two inputs; moments are used up from file to file.
  for (int file = 0; file < 2; ++file) {
    auto shots = Shots(kStart + file * 60'000, 1000, Repeat(6, "IPPPP"), 0);
    const auto second = Shots(kStart + file * 60'000 + 500, 1000, Repeat(3, "IPPPPPPPPP"), 1);
    shots.insert(shots.end(), second.begin(), second.end());
    Write(shots);
  }
  const auto at = [](int second, int stream) {
    return Shot{static_cast<std::uint16_t>(stream), 1, kStart + second * 1000 + stream * 500}
        .Payload();
  };
  const auto run = [&](const std::vector<hostkit::SearchInput>& inputs) {
    Run(Request(1, kSecond0, kSecond0 + 200, 0, inputs));
  };
  run({Video(0, {kSecond0 - 5, kSecond0 + 7, kSecond0 + 8, kSecond0 + 62, kSecond0 + 5000})});
  // 8 falls to the group of 7, which has been sent.
  EXPECT_EQ(Played(), (std::vector<std::string>{at(0, 0), at(5, 0), at(60, 0)}));
  EXPECT_NE(ResultText().find("Thumbnail=\"2\""), std::string::npos);

  run({Video(0, {kSecond0 + 3}), Video(1, {kSecond0 + 15})});
  EXPECT_EQ(Played(), (std::vector<std::string>{at(0, 0), at(10, 1)}));
  run({Video(0, {kSecond0 + 900})});
  EXPECT_TRUE(Played().empty());
}

TEST_F(SearchRun, PicturesOfOneStreamLeaveTheOtherItsLine) {
  auto shots = Shots(kStart, 1000, "IPPPPP", 0);
  for (const Shot& shot : Shots(kStart + 500, 1000, "IPI", 1)) shots.push_back(shot);
  Write(shots);
  constexpr std::int64_t kFirst = kSecond0;
  Run(Request(1, kSecond0, kSecond0 + 10, 0, {Video(0, {kSecond0 + 1}), Video(1)}));
  EXPECT_EQ(Results(),
            (std::vector<Line>{{0, kFirst, kFirst, 1, 0}, {1, kFirst, kFirst + 2, 0, 0}}));
  // The bucket of second 2 falls to input 1, on top of its frames.
  Run(Request(1, kSecond0, kSecond0 + 10, 2, {Video(0), Video(1)}));
  EXPECT_EQ(Results(),
            (std::vector<Line>{{0, kFirst, kFirst, 1, 0}, {1, kFirst, kFirst + 2, 4, 0}}));
}

TEST_F(SearchRun, FullerCopyOfAFileIsRead) {
  for (const std::size_t fuller : {0, 1}) {
    const UtcMs start = kStart + static_cast<UtcMs>(fuller) * 3'600'000;
    auto wanted = Shots(start, 1000, Repeat(5, "IPPPP"), 0);
    auto other = Shots(start, 1000, "IPP", 0);
    const auto audio = Shots(start + 5'000, 100, Repeat(40, "A"), 16);
    other.insert(other.end(), audio.begin(), audio.end());
    Write(wanted, kDevice, fuller);
    Write(other, kDevice, 1 - fuller);  // less video, but the sound
    Run(Request(1, start / 1000, start / 1000 + 100, 0, {Video(0), Audio(0)}));
    wanted.insert(wanted.end(), audio.begin(), audio.end());
    EXPECT_TRUE(std::ranges::is_permutation(Played(), Payloads(wanted))) << fuller;
  }
}

TEST_F(SearchRun, OpensOnlyFilesThatMayReachTheRange) {
  const UtcMs hour = kStart - kStart % 3'600'000;
  for (const int minute : {4, 6, 11, 16}) Write(Shots(hour + minute * 60'000, 1000, "IPP"));
  const std::int64_t start = hour / 1000 + 10 * 60;
  Run(Request(0, start, start + 60, 0, {Video(0)}));
  EXPECT_EQ(bundle.files.Calls(qv::kelvo::FileCall::Open), 4u) << "two files and their indexes";
}

TEST_F(SearchRun, ListsTheHourThatComesTwiceOnce) {
  // 2025-10-26, 02:30 by either clock.
  for (const UtcMs time : {1'761'438'600'000, 1'761'442'200'000}) Write(Shots(time, 1000, "IPP"));
  Run(Request(1, 1'761'430'000, 1'761'450'000, 0, {Video(0)}));
  EXPECT_EQ(Played().size(), 6u);
  Run(Request(0, 1'761'430'000, 1'761'450'000, 0, {Video(0)}));
  EXPECT_EQ(Results().size(), 2u);
}

TEST_F(SearchRun, WeeksOf2007BeginAnHourEarlier) {
  const UtcMs time = 1'174'000'000'000;  // 2007-03-15
  Write(Shots(time - 1800'000, 1000, "IPP"));
  Run(Request(1, time / 1000, time / 1000 + 10, 0, {Video(0)}));
  EXPECT_EQ(Played().size(), 3u);
}

TEST_F(SearchRun, FileOfOneInputGivesItsOwnStreams) {
  auto shots = Shots(kStart, 1000, "IPP", 0);
  shots.push_back({16, 0, kStart + 3000, 0});
  shots.push_back({1, 1, kStart + 3000, 0});  // no such stream in files of this kind
  Write(shots, 0x00110000);
  Run(Request(0, kSecond0, kSecond0 + 60, 0, {Video(0), Video(1), Audio(0)}));
  EXPECT_EQ(Results().size(), 2u);
}

TEST_F(SearchRun, ExceptionEndsTheSearchWithItsEndEvent) {
  struct Unreachable : testsupport::FakeScanner {
    using FakeScanner::FakeScanner;
    bool TestDirectory(const boost::filesystem::path&) override {
      throw std::runtime_error("no way");
    }
  };
  files.targets = {std::make_shared<Unreachable>("/nowhere/", "5")};
  Run(Request(0, kSecond0, kSecond0 + 10, 0, {Video(0)}));
  EXPECT_EQ(Order(), "P");
  EXPECT_EQ(host.CountLines(75, "search failed"), 1u);
}

}  // namespace
}  // namespace qvsvr::kelvo
