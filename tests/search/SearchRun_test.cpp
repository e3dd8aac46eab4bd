#include <cerrno>

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
      const hostkit::SearchInput sound{.audio = true, .number = 1, .moments = {}};
      const auto inputs = {Video(0), Video(2), Video(3), Video(18), sound};
      Run(Request(0, kSecond0, kSecond0 + 200, resolution, inputs), 7, with);
      return bundle.files.Calls(qv::kelvo::FileCall::Open) - before;
    };
    EXPECT_EQ(opensFor(nullptr), 6u);
    const std::string read = ResultText();
    EXPECT_EQ(hostkit::ParseResults(read).rows.size(), resolution == 0 ? 6u : 4u);
    EXPECT_EQ(opensFor(known), 0u) << "all were closed by this process";
    EXPECT_EQ(ResultText(), read);
    const auto replace = [&] { return boost::filesystem::remove(path) && Write(shots) == path; };
    EXPECT_TRUE(replace());
    EXPECT_EQ(opensFor(known), 0u);
    boost::filesystem::copy_file(path + "i", path + "x");
    boost::filesystem::rename(path + "x", path + "i");
    EXPECT_EQ(opensFor(known), 2u) << "the same again, but it might be another";
    boost::filesystem::resize_file(path + "i", boost::filesystem::file_size(path + "i") - 48);
    EXPECT_EQ(opensFor(known), 2u);
    const std::string cut = ResultText();
    EXPECT_EQ(opensFor(nullptr), 6u);
    EXPECT_EQ(ResultText(), cut);

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
    EXPECT_EQ(ResultText(), read);
  }
}

TEST(RunTables, HoldAsManyHoursAsTheyMayTheLastAskedForLongest) {
  const auto table = std::make_shared<qv::kelvo::RunTable>();
  qv::kelvo::RunTables tables(64 * 1024);
  const std::vector<std::string> names = {"b.ps", "a.ps", "c.ps"};
  const std::vector<std::string_view> asked(names.begin(), names.end());
  const auto knownIn = [&](int hour) {
    const auto found = tables.Find(std::to_string(hour) + "/", asked);
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
  EXPECT_EQ(tables.Find("/x/", asked)[1].table, nullptr) << "a state that can't be told";
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
  Run("", 0);
  EXPECT_EQ(Order(), "") << "nobody is there to be told";
}

TEST_F(SearchRun, ManyFilesAtOnceShareAFewDescriptors) {
  std::vector<hostkit::SearchInput> inputs;
  std::vector<Shot> all;
  for (int device = 0; device < 100; ++device) {
    auto shots = Shots(kStart + device, 1000, Repeat(4, "IPP"));
    for (Shot& shot : shots) shot.padding = 30'000;  // more than is read at once
    Write(shots, kDevice | static_cast<StreamID>(device) << 8);
    all.insert(all.end(), shots.begin(), shots.end());
    inputs.push_back(Video(0, {}, device));
  }
  std::ranges::sort(all, {}, &Shot::time);
  std::size_t most = 0;
  const int exhausted = qv::kelvo::kPathSeparator == '/' ? EMFILE : 4;
  answer = [&](std::size_t number, char kind) {
    most = std::max(most, bundle.files.OpenFiles());
    // The whole process runs out of them.
    if (kind == 'F' && number % 5 == 0) bundle.files.Fail(qv::kelvo::FileCall::Open, 1, exhausted);
    return 0u;
  };
  Run(Request(1, kSecond0, kSecond0 + 60, 0, inputs));
  ASSERT_EQ(Played().size(), all.size());
  for (std::size_t n = 0; n < all.size(); ++n) EXPECT_EQ(Played()[n], all[n].Payload());
  EXPECT_LE(most, 64u);
  EXPECT_GT(bundle.files.FaultsFired(), 10u);
}

TEST_F(SearchRun, FileThatFailsOwesEmptyEventsAndCancelOrErrorAtAnyEventIsTheLast) {
  const std::string path = Write(Shots(kStart, 1000, "IPPPP"));
  Write(Shots(kStart + 20'000, 1000, "IP"));
  boost::filesystem::resize_file(path, boost::filesystem::file_size(path) - 64 * 2);
  const std::string request = Request(1, kSecond0, kSecond0 + 60, 0, {Video(0)});
  Run(request);
  const std::string whole = Order();
  ASSERT_EQ(whole, "PRFFFEEFFP");
  for (std::size_t n = 5; n < 7; ++n) {
    KelvoHostRequest same = events[n].request;
    EXPECT_EQ(same.Length, 0u);
    same.Length = events[4].request.Length;
    EXPECT_EQ(std::memcmp(&same, &events[4].request, sizeof same), 0);
  }
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const std::uint32_t status : {1u, 2u, 0xFFu}) {
      host.ForgetTraffic();
      returned = status == 0xFF ? 5 : 0;
      answer = [&](std::size_t number, char) { return number == at ? status : 0; };
      Run(request);
      EXPECT_EQ(Order(), whole.substr(0, at + 1));
      const std::size_t told = whole[at] != 'E';
      const std::string error = " event ret " + std::to_string(returned) + " error ";
      EXPECT_EQ(host.CountLines(0, "search canceled"), status == 1 ? told : 0);
      EXPECT_EQ(host.CountLines(75, error), status == 1 ? 0 : told);
    }
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
