#include <ctime>

#include "tests/platform/Errors.h"
#include "tests/platform/Fixtures.h"

namespace qv::kelvo {
namespace {

TEST_F(MediaFilesTest, CreateEmptiesWhatIsThereAndReadNeedsIt) {
  tree.Write("a.ps", "earlier recording");
  const auto file = Create("a.ps");
  std::uint64_t size = 1;
  EXPECT_EQ(file->Size(size), 0);
  EXPECT_EQ(size, 0U);

  std::unique_ptr<MediaFile> missing = Create("b.ps");
  EXPECT_EQ(files.Open(tree.Path("none.ps"), OpenMode::Read, missing), kNoFile);
  EXPECT_EQ(missing, nullptr);
  EXPECT_EQ(files.Open(tree.Path("none/a.ps"), OpenMode::CreateOrTruncate, missing), kNoDirectory);
}

TEST_F(MediaFilesTest, GatherWriteKeepsOrderAndPlace) {
  const auto file = Create("a.ps");
  const IoResult first = Write(*file, 0, {"head", "", "body", std::string_view(), "tail"});
  EXPECT_EQ(first.bytes, 12U);
  EXPECT_EQ(first.error, 0);
  EXPECT_EQ(Write(*file, 4, {"BO"}).bytes, 2U);
  EXPECT_EQ(Write(*file, 14, {"x"}).bytes, 1U);
  EXPECT_EQ(Write(*file, 3, {}).bytes, 0U);
  EXPECT_EQ(tree.Read("a.ps"), std::string("headBOdytail\0\0x", 15));

  const auto nine = Write(*file, 0, {"1", "2", "3", "4", "5", "6", "7", "8", "9"});
  EXPECT_EQ(nine.bytes, 0U);
  EXPECT_EQ(nine.error, kBadParts);
  EXPECT_EQ(Write(*file, 0, {"1", "2", "3", "4", "5", "6", "7", "8"}).bytes, 8U);
}

TEST_F(MediaFilesTest, ReadStopsAtTheEndOfTheFile) {
  tree.Write("a.psi", "0123456789");
  const auto file = Open("a.psi", OpenMode::Read);
  EXPECT_EQ(Read(*file, 2, 3), "234");
  EXPECT_EQ(Read(*file, 8, 5), "89");
  EXPECT_EQ(Read(*file, 10, 5), "");
  EXPECT_EQ(Read(*file, std::uint64_t{1} << 42, 5), "");
  EXPECT_EQ(Read(*file, ~std::uint64_t{0}, 5), std::to_string(kBadOffset) + ':');
  EXPECT_EQ(Write(*file, 0, {"x"}).error, kFileReadOnly);
}

TEST_F(MediaFilesTest, SizeCanBeSetBothWays) {
  const auto file = Create("a.ps");
  ASSERT_EQ(Write(*file, 0, {"abcdef"}).bytes, 6U);
  EXPECT_EQ(file->SetSize(8), 0);
  EXPECT_EQ(Read(*file, 4, 9), std::string("ef\0\0", 4));
  EXPECT_EQ(file->SetSize(2), 0);
  EXPECT_EQ(tree.Read("a.ps"), "ab");
  EXPECT_NE(file->SetSize(~std::uint64_t{0}), 0);
}

TEST_F(MediaFilesTest, FileTellsWhenItWasMadeAndOnceClosedRefusesEverything) {
  const std::int64_t before = std::time(nullptr);
  const auto file = Create("a.ps");
  std::int64_t created = 0;
  ASSERT_EQ(file->CreationTime(created), 0);
  EXPECT_GE(created, before - 1);
  EXPECT_LE(created, std::time(nullptr) + 1);
  EXPECT_EQ(file->Close(), 0);
  EXPECT_EQ(file->Close(), 0);
  EXPECT_EQ(Write(*file, 0, {"x"}).error, kFileClosed);
  EXPECT_EQ(Read(*file, 0, 1), std::to_string(kFileClosed) + ':');
  std::uint64_t size = 0;
  EXPECT_EQ(file->Size(size), kFileClosed);
}

}  // namespace
}  // namespace qv::kelvo
