#include <algorithm>

#include "storage/Cleanup.h"
#include "tests/storage/RecordingForest.h"

namespace qvsvr::kelvo {
namespace {

class RecordingTree : public RecordingForest {
 protected:
  using Names = std::vector<std::string>;
  static Names Tree() {
    Names paths;
    for (const auto& entry : boost::filesystem::recursive_directory_iterator("a")) {
      const bool directory = boost::filesystem::is_directory(entry.path());
      paths.push_back(entry.path().generic_string().substr(2) + (directory ? "/" : ""));
    }
    std::ranges::sort(paths);
    return paths;
  }
};

TEST_F(RecordingTree, RemovalTakesCompanionsAndEmptiedDirectoriesButNotTheVolume) {
  const std::string path = "a/2024/05/06/07/0800-00110000.ps", later = "a/2024/05/31/23/0000-0.ps";
  for (const char* suffix : {"", "i", "m"}) WriteFile(path + suffix);
  WriteFile(later);
  EXPECT_TRUE(RemoveRecording(path, "a/"));
  EXPECT_EQ(Tree(), (Names{"2024/", "2024/05/", "2024/05/31/", "2024/05/31/23/", later.substr(2)}));
  EXPECT_TRUE(RemoveRecording(later, "a/"));
  EXPECT_TRUE(Exists("a") && !Exists("a/2024"));
  EXPECT_TRUE(RemoveRecording(later, "a/")) << "a missing file is no error";
  EXPECT_TRUE(host.Lines().empty()) << "a directory that isn't empty is nothing to tell";

  // A directory with something in it can't be removed as a file.
  const struct {
    const char* stuck;  // suffix
    bool success;
    std::size_t told;
  } rows[] = {{"", false, 1}, {"i", true, 1}, {"m", false, 0}};
  for (const auto& row : rows) {
    boost::filesystem::remove_all("a/2024");
    for (const char* suffix : {"", "i", "m"}) {
      WriteFile(path + suffix + (suffix == std::string(row.stuck) ? "/in the way" : ""));
    }
    host.ForgetTraffic();
    EXPECT_EQ(RemoveRecording(path, "a/"), row.success) << row.stuck;
    EXPECT_EQ(host.CountLines(50, "remove " + path + row.stuck + ", "), row.told);
    EXPECT_EQ(Tree().size(), row.success || *row.stuck != '\0' ? 6u : 8u)
        << "media keep their index";
  }
}

TEST_F(RecordingTree, CleanupTakesDebrisOfEarlierHoursAndSparesTheRest) {
  const std::string hour = "a/2025/06/15/15/";
  const Names stay = {"1999/",  // what isn't of the tree
                      "2025/",
                      "2025/007/",
                      "2025/06/",
                      "2025/06/14/",
                      "2025/06/14/03/",
                      "2025/06/14/03/notes.txt",
                      "2025/06/15/",
                      "2025/06/15/15/",
                      "2025/06/15/15/0000-00120100.ps",
                      "2025/06/15/15/0000-00120100.psi",
                      "2025/06/15/15/0300-00120100.ps",  // without a companion nobody looks at it
                      "2025/06/15/15/other.psi",         // stands for no time
                      "2025/06/15/16/",
                      "2025/06/15/16/5501-00120100.psi",
                      "2025/06/15/17/",
                      "2025/06/15/17/0000-00120100.psi",
                      "2025/13/",
                      "2025/1x/",
                      "2051/",
                      "20x1/"};
  for (const std::string& name : stay) {
    boost::filesystem::create_directories("a/" + name.substr(0, name.rfind('/')));
    if (!name.ends_with('/')) WriteFile("a/" + name, 2048);
  }
  WriteFile(hour + "0100-00120100.ps", 2047);
  WriteFile(hour + "0100-00120100.psi");
  WriteFile(hour + "0100-00120100.psm");
  WriteFile(hour + "0200-00120100.psi");  // orphans
  WriteFile(hour + "0200-00120100.psm");
  WriteFile(hour + "0400-00120100.psi.psm");
  WriteFile("a/2025/06/15/16/5459-00120100.psi");
  for (const char* empty : {"a/2025/06/13/04", "a/2024/01/02", "a/2023"}) {
    boost::filesystem::create_directories(empty);
  }
  const auto before = Tree();
  std::atomic<bool> stop{false};
  const auto clean = [&](bool removing) { return FsCleanup(platform, {"a/"}, stop, removing); };
  const CleanupCounts reported = clean(false);
  EXPECT_EQ(Tree(), before);
  EXPECT_EQ(reported.emptyFiles, 2u) << "seen from each companion";
  EXPECT_EQ(reported.orphanedFiles, 6u);
  EXPECT_EQ(reported.emptyHours + reported.emptyDays + reported.emptyYears, 4u);

  const CleanupCounts removed = clean(true);
  EXPECT_EQ(removed.emptyFiles, 1u);
  EXPECT_EQ(Tree(), stay);
  EXPECT_EQ(host.CountLines("failed to remove"), 0u) << "a directory with content is no failure";

  host.ForgetTraffic();
  stop = true;
  clean(true);
  EXPECT_TRUE(host.Lines().empty());
}

}  // namespace
}  // namespace qvsvr::kelvo
