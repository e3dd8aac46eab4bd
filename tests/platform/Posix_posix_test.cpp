#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <set>

#include "platform/Files.h"
#include "tests/platform/Fixtures.h"

// What only Linux has: links, descriptors, the drives in a directory, files that may not grow.
namespace qv::kelvo {
namespace {

namespace fs = boost::filesystem;

// As long as it lives one of the process's resources is limited. With RLIMIT_FSIZE a write that
// crosses the limit runs short, one behind it fails with EFBIG.
class Limit {
 public:
  Limit(__rlimit_resource limited, rlim_t most)
      : resource(limited), handler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(resource, &earlier);
    const rlimit limit{most, earlier.rlim_max};
    setrlimit(resource, &limit);
  }
  ~Limit() {
    setrlimit(resource, &earlier);
    std::signal(SIGXFSZ, handler);
  }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;

 private:
  const __rlimit_resource resource;
  void (*const handler)(int);
  rlimit earlier{};
};

TEST_F(DirectoriesTest, SymbolicLinkCountsAsWhatItLeadsTo) {
  tree.Write("file", "1234");
  tree.MakeDirectory("disk");
  ASSERT_EQ(symlink("file", tree.Path("to_file").c_str()), 0);
  ASSERT_EQ(symlink("disk", tree.Path("to_disk").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", tree.Path("to_nothing").c_str()), 0);
  EXPECT_EQ(List("to_*", ListSizes::Yes),
            (Found{{"to_file", "4"}, {"to_disk", "dir"}, {"to_nothing", "0"}}));
  EXPECT_EQ(List("to_d*", ListSizes::No), (Found{{"to_disk", "dir"}}));
}

TEST_F(DirectoriesTest, ListThousandsAndEndWhenTold) {
  for (int i = 0; i < 3000; ++i) tree.Write(std::to_string(i), "");
  std::set<std::string> names;
  int visits = 0;
  const auto descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = descriptors();
  const auto list = [&](int most, bool removing) {
    visits = 0;
    return directories.List(tree.Root(), "*", ListSizes::Yes, [&](const DirectoryEntry& entry) {
      names.emplace(entry.name);
      if (removing) fs::remove_all(tree.Root());
      return ++visits != most;
    });
  };
  EXPECT_EQ(list(-1, false), 0);
  EXPECT_EQ(names.size(), 3000U);
  EXPECT_EQ(list(7, false), 0);
  EXPECT_EQ(visits, 7);
  EXPECT_EQ(descriptors(), before);
  // One that vanishes meanwhile is no error.
  EXPECT_EQ(list(-1, true), 0);
  EXPECT_EQ(visits, 1);
}

TEST_F(DirectoriesTest, DirectoriesAndLinksToThemAreDrivesUnderTheirOwnNames) {
  Drives& drives = SystemPlatform().drives;
  fs::current_path(tree.Root());
  std::vector<std::string> names{"stale"};
  EXPECT_EQ(drives.FixedDrives(names), 0);
  EXPECT_TRUE(names.empty());
  EXPECT_EQ(drives.SearchedPlace(), tree.Path("drives"));
  tree.Write("drives", "");
  EXPECT_EQ(drives.FixedDrives(names), ENOTDIR);
  fs::remove("drives");
  tree.MakeDirectory("drives/d2");
  tree.MakeDirectory("drives/d1/2026");
  tree.MakeDirectory("elsewhere/disk");
  tree.Write("drives/readme.txt", "mount disks here");
  ASSERT_EQ(symlink("../elsewhere/disk", "drives/d3"), 0);
  ASSERT_EQ(symlink("readme.txt", "drives/d4"), 0);
  ASSERT_EQ(symlink("gone", "drives/d5"), 0);
  EXPECT_EQ(drives.FixedDrives(names), 0);
  EXPECT_EQ(names, (std::vector<std::string>{tree.Path("drives/d1/"), tree.Path("drives/d2/"),
                                             tree.Path("drives/d3/")}));
  std::string system;
  EXPECT_EQ(drives.SystemDirectory(system), 0);
  EXPECT_EQ(system, "/usr");
}

TEST_F(DirectoriesTest, SpaceAndDeviceAreThoseOfThePath) {
  Drives& drives = SystemPlatform().drives;
  DriveSpace space;
  EXPECT_EQ(drives.Space(tree.Root(), space), "");
  EXPECT_EQ(space.capacity, fs::space(tree.Root()).capacity);
  EXPECT_GT(space.free, 0U);
  EXPECT_GE(space.free, space.available);
  EXPECT_EQ(drives.Space(tree.Path("none"), space), "No such file or directory");

  struct stat status {};
  ASSERT_EQ(stat("/proc", &status), 0);
  std::uint64_t device = 0;
  EXPECT_EQ(drives.DeviceNumber("/proc/self", device), 0);
  EXPECT_EQ(device, status.st_dev);
  EXPECT_EQ(drives.DeviceNumber(tree.Path("none"), device), ENOENT);
}

TEST_F(MediaFilesTest, NewFilesAreReadableByAllAndClosedInChildren) {
  const mode_t mask = umask(0);
  const auto file = Create("a.ps");
  umask(mask);
  struct stat status {};
  ASSERT_EQ(stat(tree.Path("a.ps").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);

  int found = 0;
  for (const auto& link : fs::directory_iterator("/proc/self/fd")) {
    boost::system::error_code gone;
    if (fs::read_symlink(link.path(), gone) != tree.Path("a.ps")) continue;
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
  if (access("/proc/thread-self/io", R_OK) != 0) GTEST_SKIP() << "this kernel doesn't count calls";
  const auto file = Create("a.ps");
  const std::string payload(1 << 20, 'p');
  const auto callsOf = [&](std::initializer_list<std::string_view> parts) {
    const std::uint64_t before = writeCalls();
    EXPECT_GE(Write(*file, 0, parts).bytes, payload.size());
    return writeCalls() - before;
  };
  (void)callsOf({payload});  // a sanitizer's own calls count as well, the first time
  EXPECT_EQ(callsOf({"header", payload, "padding"}), callsOf({payload}));
}

TEST_F(MediaFilesTest, ShortWriteIsToldAndNotRetried) {
  const auto file = Create("a.ps");
  const Limit limit(RLIMIT_FSIZE, 10);
  const IoResult crossing = Write(*file, 4, {"1234", "5678"});
  EXPECT_EQ(crossing.bytes, 6U);
  EXPECT_EQ(crossing.error, 0);
  const IoResult behind = Write(*file, 10, {"x"});
  EXPECT_EQ(behind.bytes, 0U);
  EXPECT_EQ(behind.error, EFBIG);
  EXPECT_EQ(file->SetSize(11), EFBIG);
}

TEST_F(MediaFilesTest, OnlyRegularFilesAreToldOfAndOpened) {
  tree.Write("a.ps", "1");
  ASSERT_EQ(mkfifo(tree.Path("b.ps").c_str(), 0644), 0);
  ASSERT_EQ(symlink("b.ps", tree.Path("c.ps").c_str()), 0);
  std::string names;
  const auto note = [&](const DirectoryEntry& entry) {
    names += entry.name;
    return true;
  };
  for (const ListSizes sizes : {ListSizes::No, ListSizes::Yes}) {
    EXPECT_EQ(SystemPlatform().directories.List(tree.Root(), "*", sizes, note), 0);
  }
  ASSERT_EQ(names, "a.psa.ps");
  std::unique_ptr<MediaFile> file;
  for (const char* name : {".", "b.ps", "c.ps"}) {
    EXPECT_EQ(files.Open(tree.Path(name), OpenMode::Read, file), ENOENT);
    EXPECT_EQ(file, nullptr);
  }
  EXPECT_EQ(files.Open(tree.Path("b.ps"), OpenMode::CreateOrTruncate, file), ENOENT);
}

TEST_F(MediaFilesTest, FilesByDirectoryAreThoseOfTheirPaths) {
  const auto byDirectory = files.ByDirectory();
  std::unique_ptr<MediaFile> file;
  EXPECT_EQ(byDirectory->Open(tree.Path("02/a.ps"), OpenMode::Read, file), ENOENT);
  for (const char* name : {"01/a.ps", "01/b.ps", "02/a.ps"}) tree.Write(name, name);
  for (const char* name : {"02/a.ps", "01/a.ps", "01/b.ps", "02/a.ps", "01/a.ps"}) {
    ASSERT_EQ(byDirectory->Open(tree.Path(name), OpenMode::Read, file), 0) << name;
    EXPECT_EQ(Read(*file, 0, 9), name);
    EXPECT_EQ(file->OpenedAs(), files.StampOf(tree.Path(name)));
  }
  EXPECT_EQ(byDirectory->Open(tree.Path("01/c.ps"), OpenMode::Read, file), ENOENT);
  ASSERT_EQ(byDirectory->OpenListed(tree.Path("01/b.ps"), file), 0);
  EXPECT_EQ(Read(*file, 0, 9), "01/b.ps");
  ASSERT_EQ(mkfifo(tree.Path("01/d.ps").c_str(), 0644), 0);
  ASSERT_EQ(byDirectory->OpenListed(tree.Path("01/d.ps"), file), 0);
  EXPECT_EQ(Read(*file, 0, 1), std::to_string(ESPIPE) + ':');
}

TEST_F(DurableFilesTest, TellTheStepThatFailed) {
  ExpectWrite("none/kelvo.xml", "x", Step::Create, ENOENT, 0);
  tree.MakeDirectory("taken");
  ExpectWrite("taken", "x", Step::Create, EISDIR, 0);
  {
    const Limit limit(RLIMIT_FSIZE, 4);
    ExpectWrite("short.xml", "123456", Step::Done, 0, 4);
  }
  const Limit limit(RLIMIT_FSIZE, 0);
  ExpectWrite("full.xml", "123456", Step::Write, EFBIG, 0);
  EXPECT_FALSE(IsMissing(files.Remove(tree.Path("short.xml/below"))));
}

TEST_F(DurableFilesTest, FileThatAnotherProcessSavesIsLeftAlone) {
  tree.Write("kelvo.xml.pending", "of the other");
  const int other = open(tree.Path("kelvo.xml.pending").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(other, LOCK_EX), 0);
  ExpectWrite("kelvo.xml.pending", "ours", Step::Create, EWOULDBLOCK, 0);
  EXPECT_EQ(tree.Read("kelvo.xml.pending"), "of the other");
  close(other);
  ExpectWrite("kelvo.xml.pending", "ours", Step::Done, 0, 4);
}

TEST_F(DurableFilesTest, RenameThatCannotBeMadeDurableIsTakenBack) {
  tree.Write("from", "kept");
  tree.Write("other", "");
  const std::string from = tree.Path("from"), to = tree.Path("to");
  // A sanitizer checks an object with descriptors of its own, once.
  EXPECT_EQ(files.Remove(tree.Path("other")), 0);
  int error = 0;
  {
    const Limit limit(RLIMIT_NOFILE, 0);
    error = files.Rename(from, to);
  }
  EXPECT_EQ(error, EMFILE);
  EXPECT_EQ(tree.Files(), std::vector<std::string>{"from"});
}

}  // namespace
}  // namespace qv::kelvo
