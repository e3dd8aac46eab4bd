#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <fstream>

#include "tests/platform/FileLimit.h"
#include "tests/platform/Fixtures.h"

namespace qv::kelvo {
namespace {

TEST_F(MediaFilesTest, NewFilesAreReadableByAllAndClosedInChildren) {
  const mode_t mask = umask(0);
  const auto file = Create("a.ps");
  umask(mask);
  struct stat status {};
  ASSERT_EQ(stat(tree.Path("a.ps").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);

  int found = 0;
  for (const auto& link : boost::filesystem::directory_iterator("/proc/self/fd")) {
    boost::system::error_code gone;
    if (boost::filesystem::read_symlink(link.path(), gone) != tree.Path("a.ps")) continue;
    EXPECT_NE(fcntl(std::stoi(link.path().filename().string()), F_GETFD) & FD_CLOEXEC, 0);
    ++found;
  }
  EXPECT_EQ(found, 1);
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
  const auto callsOf = [&](std::initializer_list<std::string_view> parts, std::size_t bytes) {
    const std::uint64_t before = writeCalls();
    EXPECT_EQ(Write(*file, 0, parts).bytes, bytes);
    return writeCalls() - before;
  };
  const auto gathered = [&] {
    return callsOf({"header", payload, "padding"}, payload.size() + 13);
  };
  (void)gathered();  // a sanitizer's own calls count as well, the first time
  EXPECT_EQ(gathered(), callsOf({payload}, payload.size()));
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

TEST_F(MediaFilesTest, DirectoryCannotBeRead) {
  EXPECT_EQ(Read(*Open(".", OpenMode::Read), 0, 5), std::to_string(EISDIR) + ':');
}

}  // namespace
}  // namespace qv::kelvo
