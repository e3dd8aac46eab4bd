#include <cerrno>

#include "tests/search/SearchFixture.h"

namespace qvsvr::kelvo {
namespace {

using Playback = SearchTest;

TEST_F(Playback, InterleavesFilesByTimeAndOfEqualsTheOneThatEndsFirstGoesFirst) {
  const Shot tie{0, 1, kStart + 400};
  Write(Shots(kStart, 400, Repeat(10, "IPPPP")), 0x00110000);
  Write(Shots(kStart + 100, 700, Repeat(6, "IPPPP")), 0x00110100);
  Write({tie}, 0x00110200);
  Run(Request(1, kSecond0, kSecond0 + 100, 0, {Video(0), Video(0, {}, 1), Video(0, {}, 2)}));
  const auto played = Played();
  EXPECT_EQ(played.size(), 81u);
  EXPECT_TRUE(std::ranges::is_sorted(played)) << "each begins with its time";
  EXPECT_EQ(std::ranges::find(events, tie.Payload(), &Event::payload)->request.Source, 0x00110200u);
  EXPECT_EQ(host.CountLines(0, "SEARCH: Start playback"), 3u);
}

TEST_F(Playback, ManyFilesAtOnceShareAFewDescriptors) {
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
  EXPECT_EQ(Played(), Payloads(all));
  EXPECT_LE(most, 64u);
  EXPECT_GT(bundle.files.FaultsFired(), 10u);
}

TEST_F(Playback, FileThatFailsOwesEmptyEventsAndCancelOrErrorAtAnyEventIsTheLast) {
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
  Run(Request(1, kSecond0, kSecond0 + 60, 0, {Video(0)}));
  EXPECT_EQ(Order(), "PRFFFP");
  EXPECT_EQ(events[3].request.Length, 32u + 15u);
  EXPECT_EQ(host.CountLines(50, "00000007 open " + path + " error -2"), 1u);
}

}  // namespace
}  // namespace qvsvr::kelvo
