#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <ctime>
#include <fstream>

#include "platform/Platform.h"
#include "tests/platform/FileLimit.h"
#include "tests/support/TempTree.h"

namespace qv::kelvo {
namespace {

ConstBytes Bytes(std::string_view text) {
  return std::as_bytes(std::span(text));
}

class MediaFilesTest : public testing::Test {
 protected:
  std::unique_ptr<MediaFile> Open(const std::string& name, OpenMode mode) {
    std::unique_ptr<MediaFile> file;
    EXPECT_EQ(files.Open(tree.Path(name), mode, file), 0) << name;
    return file;
  }
  std::unique_ptr<MediaFile> Create(const std::string& name) {
    return Open(name, OpenMode::CreateOrTruncate);
  }
  static IoResult Write(MediaFile& file, std::uint64_t offset,
                        std::initializer_list<std::string_view> texts) {
    std::vector<ConstBytes> parts;
    for (const std::string_view text : texts) parts.push_back(Bytes(text));
    return file.WriteAt(offset, parts);
  }
  // Text of up to `size` bytes at `offset`, with the error's number in front if there is one.
  static std::string Read(MediaFile& file, std::uint64_t offset, std::size_t size) {
    std::string text(size, '#');
    const IoResult result = file.ReadAt(offset, std::as_writable_bytes(std::span(text)));
    text.resize(result.bytes);
    return (result.error != 0 ? std::to_string(result.error) + ':' : "") + text;
  }

  TempTree tree;
  MediaFiles& files = SystemPlatform().mediaFiles;
};

TEST_F(MediaFilesTest, CreateEmptiesWhatIsThereAndReadNeedsIt) {
  tree.Write("a.ps", "earlier recording");
  const auto file = Create("a.ps");
  std::uint64_t size = 1;
  EXPECT_EQ(file->Size(size), 0);
  EXPECT_EQ(size, 0U);

  std::unique_ptr<MediaFile> missing = Create("b.ps");
  EXPECT_EQ(files.Open(tree.Path("none.ps"), OpenMode::Read, missing), ENOENT);
  EXPECT_EQ(missing, nullptr);
  EXPECT_EQ(files.Open(tree.Path("none/a.ps"), OpenMode::CreateOrTruncate, missing), ENOENT);
}

TEST_F(MediaFilesTest, NewFilesAreReadableByAllAndClosedInChildren) {
  const mode_t mask = umask(0);
  const auto file = Create("a.ps");
  umask(mask);
  struct stat status {};
  ASSERT_EQ(stat(tree.Path("a.ps").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);

  bool found = false;
  for (const auto& link : boost::filesystem::directory_iterator("/proc/self/fd")) {
    boost::system::error_code gone;
    if (boost::filesystem::read_symlink(link.path(), gone) != tree.Path("a.ps")) continue;
    std::ifstream info("/proc/self/fdinfo/" + link.path().filename().string());
    std::string word;
    while (info >> word && word != "flags:") {
    }
    info >> word;
    EXPECT_NE(std::stoul(word, nullptr, 8) & 02000000UL, 0U) << "not closed on exec: " << word;
    found = true;
  }
  EXPECT_TRUE(found);
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
  EXPECT_EQ(nine.error, EINVAL);
  EXPECT_EQ(Write(*file, 0, {"1", "2", "3", "4", "5", "6", "7", "8"}).bytes, 8U);
}

TEST_F(MediaFilesTest, GatherWriteIsOneSystemCall) {
  const auto writeCalls = [] {
    std::ifstream io("/proc/thread-self/io");
    std::string word;
    std::uint64_t count = 0;
    while (io >> word) {
      if (word == "syscw:") io >> count;
    }
    return count;
  };
  const auto file = Create("a.ps");
  const std::string payload(1 << 20, 'p');
  if (access("/proc/thread-self/io", R_OK) != 0) GTEST_SKIP() << "this kernel doesn't count calls";
  // Against a single part, since a sanitizer's own calls count as well.
  (void)Write(*file, 0, {"warm"});
  const std::uint64_t before = writeCalls();
  EXPECT_EQ(Write(*file, 0, {payload}).bytes, payload.size());
  const std::uint64_t single = writeCalls() - before;
  EXPECT_EQ(Write(*file, 0, {"header", payload, "padding"}).bytes, payload.size() + 13);
  EXPECT_EQ(writeCalls() - before, 2 * single);
}

TEST_F(MediaFilesTest, ShortWriteIsToldAndNotRetried) {
  const auto file = Create("a.ps");
  const FileLimit limit(10);
  const IoResult crossing = Write(*file, 4, {"1234", "5678"});
  EXPECT_EQ(crossing.bytes, 6U);
  EXPECT_EQ(crossing.error, 0);
  const IoResult behind = Write(*file, 10, {"x"});
  EXPECT_EQ(behind.bytes, 0U);
  EXPECT_EQ(behind.error, EFBIG);
  EXPECT_EQ(file->SetSize(11), EFBIG);
}

TEST_F(MediaFilesTest, ReadStopsAtTheEndOfTheFile) {
  tree.Write("a.psi", "0123456789");
  const auto file = Open("a.psi", OpenMode::Read);
  EXPECT_EQ(Read(*file, 2, 3), "234");
  EXPECT_EQ(Read(*file, 8, 5), "89");
  EXPECT_EQ(Read(*file, 10, 5), "");
  EXPECT_EQ(Read(*file, std::uint64_t{1} << 62, 5), "");
  EXPECT_EQ(Read(*file, ~std::uint64_t{0}, 5), std::to_string(EINVAL) + ':');
  EXPECT_EQ(Write(*file, 0, {"x"}).error, EBADF);
  EXPECT_EQ(Read(*Open(".", OpenMode::Read), 0, 5), std::to_string(EISDIR) + ':');
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

TEST_F(MediaFilesTest, ReaderSeesWhatTheWriterOfTheSameFileWrites) {
  const auto writer = Create("a.ps");
  const auto reader = Open("a.ps", OpenMode::Read);
  ASSERT_EQ(Write(*writer, 0, {"frame"}).bytes, 5U);
  EXPECT_EQ(Read(*reader, 0, 9), "frame");
}

TEST_F(MediaFilesTest, CreationTimeIsWhenTheFileWasMade) {
  const std::int64_t before = std::time(nullptr);
  const auto file = Create("a.ps");
  std::int64_t created = 0;
  ASSERT_EQ(file->CreationTime(created), 0);
  EXPECT_GE(created, before - 1);
  EXPECT_LE(created, std::time(nullptr) + 1);
}

TEST_F(MediaFilesTest, ClosedFileRefusesEverythingButClose) {
  const auto file = Create("a.ps");
  EXPECT_EQ(file->Close(), 0);
  EXPECT_EQ(file->Close(), 0);
  EXPECT_EQ(Write(*file, 0, {"x"}).error, EBADF);
  EXPECT_EQ(Read(*file, 0, 1), std::to_string(EBADF) + ':');
  std::uint64_t size = 0;
  EXPECT_EQ(file->Size(size), EBADF);
}

}  // namespace
}  // namespace qv::kelvo
