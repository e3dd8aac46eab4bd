#include "platform/Native.h"

#include <cerrno>
#include <ctime>
#include <sstream>
#include <vector>

#include "platform/Files.h"
#include "tests/platform/Fixtures.h"

// What all systems answer alike, save for their error numbers.
namespace qv::kelvo {
namespace {

#ifdef _WIN32
constexpr int kNoFile = 2, kNoDirectory = 3, kNameTaken = 183, kBadParts = 87, kBadOffset = 131,
              kFileClosed = 6, kFileReadOnly = 5;
#else
constexpr int kNoFile = ENOENT, kNoDirectory = ENOENT, kNameTaken = EEXIST, kBadParts = EINVAL,
              kBadOffset = EINVAL, kFileClosed = EBADF, kFileReadOnly = EBADF;
#endif

TEST(SystemClock, TellsWallTimeInMillisecondsAndSteadyTimeInNanoseconds) {
  Clock& clock = SystemPlatform().clock;
  const std::int64_t before = std::time(nullptr);
  const UtcMs now = clock.NowMs();
  EXPECT_GE(now / 1000, before - 1);  // time() may lag by a tick of the kernel
  EXPECT_LE(now / 1000, std::time(nullptr) + 1);
  const std::int64_t start = clock.SteadyNs();
  while (clock.SteadyNs() - start < 2'000'000) continue;
  EXPECT_GE(clock.NowMs() - now, 1);
}

TEST_F(DirectoriesTest, TellKindAndSizeOfWhatMatches) {
  tree.Write("a.ps", "12345");
  tree.Write("B.PS", "1");
  tree.Write("a.psi", "123");
  tree.MakeDirectory("sub.ps/below");
  EXPECT_EQ(List("*.ps", ListSizes::Yes), (Found{{"a.ps", "5"}, {"B.PS", "1"}, {"sub.ps", "dir"}}));
  EXPECT_EQ(List("a*", ListSizes::No), (Found{{"a.ps", "0"}, {"a.psi", "0"}}));
  const auto list = [&](const char* name) {
    return directories.List(tree.Path(name), "*", ListSizes::No,
                            [](const DirectoryEntry&) { return true; });
  };
  EXPECT_EQ(list("none"), kNoDirectory);
  EXPECT_NE(list("a.ps"), 0);
}

TEST_F(MediaFilesTest, CreatingEmptiesWhatIsThereAndReadingNeedsIt) {
  tree.Write("a.ps", "earlier recording");
  std::unique_ptr<MediaFile> file = Create("a.ps");
  std::uint64_t size = 1;
  EXPECT_EQ(file->Size(size), 0);
  EXPECT_EQ(size, 0U);
  EXPECT_EQ(files.Open(tree.Path("none.ps"), OpenMode::Read, file), kNoFile);
  EXPECT_EQ(file, nullptr);
  EXPECT_EQ(files.Open(tree.Path("none/a.ps"), OpenMode::CreateOrTruncate, file), kNoDirectory);
}

TEST_F(MediaFilesTest, GatherWritesAndReadsKeepOrderAndPlace) {
  const auto file = Create("a.ps");
  const IoResult first = Write(*file, 0, {"head", "", "body", std::string_view(), "tail"});
  EXPECT_EQ(first.bytes, 12U);
  EXPECT_EQ(first.error, 0);
  EXPECT_EQ(Write(*file, 4, {"BO"}).bytes, 2U);
  EXPECT_EQ(Write(*file, 14, {"x"}).bytes, 1U);
  EXPECT_EQ(Write(*file, 3, {}).bytes, 0U);
  EXPECT_EQ(tree.Read("a.ps"), std::string("headBOdytail\0\0x", 15));
  // Small and large parts by turns, as a run of frames has them.
  constexpr std::size_t kLarge[] = {20'000, 70'000, 65'536, 40'000};
  const auto sizeOf = [&](std::size_t n) { return n % 3 == 0 ? kLarge[n % 4] : n; };
  std::string content;
  std::vector<ConstBytes> parts;
  for (std::size_t n = 0; n <= kMaxWriteParts; ++n) {
    content += std::string(sizeOf(n), static_cast<char>('a' + n % 20));
  }
  for (std::size_t n = 0, at = 0; n <= kMaxWriteParts; ++n) {
    const std::size_t size = sizeOf(n);
    parts.push_back(std::as_bytes(std::span(content)).subspan(at, size));
    at += size;
  }
  EXPECT_EQ(file->WriteAt(0, parts).error, kBadParts);
  content.resize(content.size() - parts.back().size());
  parts.pop_back();
  EXPECT_EQ(file->WriteAt(0, parts).bytes, content.size());
  EXPECT_EQ(tree.Read("a.ps"), content);
  EXPECT_EQ(file->SetSize(0), 0);
  EXPECT_EQ(Write(*file, 0, {"12345678", "tail", std::string_view("\0\0x", 3)}).bytes, 15U);

  const auto reader = Open("a.ps", OpenMode::Read);
  EXPECT_EQ(Read(*reader, 2, 3), "345");
  EXPECT_EQ(Read(*reader, 10, 9), std::string("il\0\0x", 5));
  EXPECT_EQ(Read(*reader, 15, 5), "");
  EXPECT_EQ(Read(*reader, std::uint64_t{1} << 42, 5), "");
  EXPECT_EQ(Read(*reader, ~std::uint64_t{0}, 5), std::to_string(kBadOffset) + ':');
  EXPECT_EQ(Write(*reader, 0, {"x"}).error, kFileReadOnly);
}

TEST_F(MediaFilesTest, SizeCanBeSetBothWaysUntilTheFileIsClosed) {
  const std::int64_t before = std::time(nullptr);
  const auto file = Create("a.ps");
  ASSERT_EQ(Write(*file, 0, {"abcdef"}).bytes, 6U);
  EXPECT_EQ(file->SetSize(8), 0);
  EXPECT_EQ(Read(*file, 4, 9), std::string("ef\0\0", 4));
  EXPECT_EQ(file->SetSize(2), 0);
  EXPECT_EQ(tree.Read("a.ps"), "ab");
  EXPECT_NE(file->SetSize(~std::uint64_t{0}), 0);
  std::int64_t created = 0;
  EXPECT_EQ(file->CreationTime(created), 0);
  EXPECT_GE(created, before - 1);
  EXPECT_LE(created, std::time(nullptr) + 1);

  EXPECT_EQ(file->Close(), 0);
  EXPECT_EQ(file->Close(), 0);
  EXPECT_EQ(Write(*file, 0, {"x"}).error, kFileClosed);
  EXPECT_EQ(Read(*file, 0, 1), std::to_string(kFileClosed) + ':');
  std::uint64_t size = 0;
  EXPECT_EQ(file->Size(size), kFileClosed);
}

TEST_F(DurableFilesTest, WritesReplaceAndRenamesDoNot) {
  ExpectWrite("from", "a longer first version", Step::Done, 0, 22);
  ExpectWrite("from", "new", Step::Done, 0, 3);
  tree.Write("to", "old");
  EXPECT_EQ(files.Rename(tree.Path("from"), tree.Path("to")), kNameTaken);
  EXPECT_EQ(tree.Read("from") + tree.Read("to"), "newold");
  EXPECT_EQ(files.Remove(tree.Path("to")), 0);
  EXPECT_EQ(files.Rename(tree.Path("from"), tree.Path("to")), 0);
  EXPECT_EQ(tree.Files(), std::vector<std::string>{"to"});
  EXPECT_EQ(tree.Read("to"), "new");
  EXPECT_TRUE(IsMissing(files.Remove(tree.Path("none"))));
  EXPECT_TRUE(IsMissing(files.Rename(tree.Path("none"), tree.Path("other"))));
  EXPECT_FALSE(IsMissing(0));
}

TEST(Pattern, MatchesWholeNamesWithoutRegardToCase) {
  for (const bool matches : {true, false}) {
    // Names, each with its pattern. Letters of several bytes count as one.
    std::istringstream rows(
        matches ? "2026 20?? A.PS *.ps a.ps *.PS .ps *.ps a.ps.ps *.ps abcabd *abd aXbXc a*x*c "
                  "mississippi m*iss*ip* a*b a?b x * \xC3\xBC.ps ?.ps \xE2\x82\xAC.ps ?.ps"
                : "20260 20?? 202 20?? a.psi *.ps ps *.ps abc ab ab abc mississippi m*ipp [ { @ ` "
                  "\xC3\xBC ??");
    for (std::string name, pattern; rows >> name >> pattern;) {
      EXPECT_EQ(MatchesPattern(name, pattern), matches) << name << " against " << pattern;
    }
  }
  EXPECT_TRUE(MatchesPattern("", "") && MatchesPattern("", "*"));
  EXPECT_FALSE(MatchesPattern("", "?") || MatchesPattern("x", ""));
  std::string stars;
  for (int i = 0; i < 60; ++i) stars += "*a";
  // Trying each star at each place would take longer than the universe has.
  EXPECT_FALSE(MatchesPattern(std::string(255, 'a') + "b", stars));
}

}  // namespace
}  // namespace qv::kelvo
