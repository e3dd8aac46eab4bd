#include "archiving/CLocalDiskScanner.h"
#include "tests/search/SearchFixture.h"

namespace qvsvr::kelvo {
namespace {

using SearchRun = SearchTest;

TEST_F(SearchRun, ListsWhatItKnowsWithoutOpeningItUntilItChanges) {
  auto shots = Shots(kStart, 40, "IPPIPP");
  shots[3].flags = 0x80;
  std::ranges::copy(Shots(kStart + 5000, 1500, "AAA", 17), std::back_inserter(shots));
  const std::string path = Write(shots);
  const std::string oldest = Write(Shots(kStart + 60'000, 40, "IPP"), 0x00110003);
  Write(Shots(kStart + 90'000, 40, "IPP", 2), 0x00110081);
  qv::kelvo::RunTables* known = &tables;
  for (const int resolution : {0, 10'000}) {
    const auto opensFor = [&](qv::kelvo::RunTables* with) {
      const std::size_t before = bundle.files.Calls(qv::kelvo::FileCall::Open);
      const auto inputs = {Video(0), Video(2), Video(3), Video(18), Audio(1)};
      Run(Request(0, kSecond0, kSecond0 + 200, resolution, inputs), 7, with);
      return bundle.files.Calls(qv::kelvo::FileCall::Open) - before;
    };
    EXPECT_EQ(opensFor(nullptr), 6u);
    const auto read = Results();
    EXPECT_EQ(read.size(), resolution == 0 ? 6u : 4u);
    EXPECT_EQ(opensFor(known), 0u) << "all were closed by this process";
    EXPECT_EQ(Results(), read);
    const auto replace = [&] { return boost::filesystem::remove(path) && Write(shots) == path; };
    EXPECT_TRUE(replace());
    EXPECT_EQ(opensFor(known), 0u);
    boost::filesystem::copy_file(path + "i", path + "x");
    boost::filesystem::rename(path + "x", path + "i");
    EXPECT_EQ(opensFor(known), 2u) << "the same again, but it might be another";
    boost::filesystem::resize_file(path + "i", boost::filesystem::file_size(path + "i") - 48);
    EXPECT_EQ(opensFor(known), 2u);
    const auto cut = Results();
    EXPECT_EQ(opensFor(nullptr), 6u);
    EXPECT_EQ(Results(), cut);

    EXPECT_TRUE(replace());
    const auto changed = [&](const std::string& media) {
      return bundle.files.StampOf(media + "i").changedNs / 1'000'000;
    };
    qv::kelvo::RunTables fresh;
    bundle.clock.SetNow(changed(oldest) + 2900);
    EXPECT_EQ(opensFor(&fresh), 6u);
    EXPECT_EQ(opensFor(&fresh), 6u) << "a change right now might not show";
    bundle.clock.SetNow(changed(path) + 3100);
    EXPECT_EQ(opensFor(&fresh), 6u);
    EXPECT_EQ(opensFor(&fresh), 0u);
    EXPECT_EQ(Results(), read);
  }
}

TEST(RunTables, HoldAsManyHoursAsTheyMayTheLastAskedForLongest) {
  const auto table = std::make_shared<qv::kelvo::RunTable>();
  qv::kelvo::RunTables tables(64 * 1024);
  const std::vector<std::string> names = {"b.ps", "a.ps", "c.ps"};
  const auto knownIn = [&](int hour) {
    const auto found = tables.Find(std::to_string(hour) + "/", names);
    EXPECT_EQ(found[2].table, nullptr);
    return (found[0].table != nullptr ? 1 : 0) + (found[1].table != nullptr ? 1 : 0);
  };
  for (int hour = 0; hour < 1000; ++hour) {
    const std::string directory = std::to_string(hour) + "/";
    tables.Put(directory + "b.ps", {1, 1, 1}, table);
    tables.PutNames(directory, 7, std::make_shared<std::vector<std::string>>(names));
    for (int again = 0; again < 3; ++again) tables.Put(directory + "a.ps", {1, 1, 1}, table);
    EXPECT_TRUE(knownIn(0) == 2 && knownIn(hour) == 2) << hour;
    EXPECT_EQ(*tables.FindNames(directory).names, names);
  }
  int count = 0;
  for (int hour = 0; hour < 1000; ++hour) count += knownIn(hour) == 2 ? 1 : 0;
  EXPECT_GT(count, 30);
  EXPECT_LT(count, 100);
  EXPECT_EQ(knownIn(1), 0);
  tables.Put("/x/a.ps", {1, 0, 1}, table);
  EXPECT_EQ(tables.Find("/x/", names)[1].table, nullptr) << "a state that can't be told";
}

TEST(RunTables, TellTheNamesOfAnHourUntilItsDirectoryChanges) {
  struct Counted : qv::kelvo::Directories {
    int List(const std::string&, std::string_view, qv::kelvo::ListSizes,
             const std::function<bool(const qv::kelvo::DirectoryEntry&)>& visit) override {
      if (++lists; lists % 2 == 0) (void)visit({"5959-10010100.ps", false, 0});
      (void)visit({"0000-10010100.ps", false, 0});
      return 0;
    }
    std::uint64_t ChangeStamp(const std::string&) override { return stamp; }
    int lists = 0;
    std::uint64_t stamp = 0;
  } directories;
  qv::kelvo::RunTables tables;
  // Stamp; names then; times that the directory was read until then.
  const std::uint64_t steps[][3] = {{0, 1, 1}, {0, 2, 2}, {5, 1, 3}, {5, 1, 3}, {6, 2, 4},
                                    {0, 1, 5}, {6, 2, 5}, {5, 2, 6}, {5, 2, 6}};
  for (const auto& [stamp, names, lists] : steps) {
    directories.stamp = stamp;
    const auto listing = ListMediaFiles(directories, {"/a/"}, &tables);
    EXPECT_EQ(listing.size(), names);
    EXPECT_EQ(listing.front().name, "0000-10010100.ps");
    EXPECT_EQ(static_cast<std::uint64_t>(directories.lists), lists);
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
  auto shots = Shots(kStart, 1000, Repeat(6, "IPPPP"), 0);
  const auto second = Shots(kStart + 500, 1000, Repeat(3, "IPPPPPPPPP"), 1);
  shots.insert(shots.end(), second.begin(), second.end());
  Write(shots);
  Run(Request(1, kSecond0, kSecond0 + 200, 0,
              {Video(0, {kSecond0 + 3}), Video(1, {kSecond0 + 15, kSecond0 + 900})}));
  EXPECT_EQ(Played(), Payloads({shots[0], second[10]}));
  EXPECT_NE(ResultText().find("Thumbnail=\"2\""), std::string::npos);
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

TEST_F(SearchRun, RunWithoutARealEndIsToldAndListed) {
  std::string name = Write(Shots(kStart, 1000, "IPP")).substr(tree.Root().size() + 1) + "i";
  std::string index = tree.Read(name);
  // The last date of its run becomes the 31st of February, or nothing was ever written there.
  index[index.size() - 10] = '\x5F';
  tree.Write(name, index);
  Run(Request(0, kSecond0, kSecond0 + 60, 0, {Video(0)}));
  EXPECT_EQ(Results(), (std::vector<Line>{{0, kSecond0, -1, 0, 0}}));
  EXPECT_EQ(host.CountLines(50, "SEARCH result out of range"), 1u);
  Run(Request(0, kSecond0 - 60, kSecond0, 0, {Video(0)}));
  EXPECT_TRUE(Results().empty());
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
  struct Unreachable : qvArchiving::CLocalDiskScanner {
    using CLocalDiskScanner::CLocalDiskScanner;
    bool TestDirectory(const boost::filesystem::path&) override {
      throw std::runtime_error("no way");
    }
  };
  files.targets = {std::make_shared<Unreachable>(
      qvArchiving::ScannerProperties{{"Type", "5"}, {"FullyMountedPath", "/nowhere/"}})};
  Run(Request(0, kSecond0, kSecond0 + 10, 0, {Video(0)}));
  EXPECT_EQ(Order(), "P");
  EXPECT_EQ(host.CountLines(75, "search failed"), 1u);
}

}  // namespace
}  // namespace qvsvr::kelvo
