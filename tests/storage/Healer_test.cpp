#include "storage/Healer.h"

#include "media/PSReader.h"
#include "storage/Cleanup.h"
#include "tests/storage/RecordingForest.h"

namespace qvsvr::kelvo {
namespace {

class Healing : public RecordingForest {
 protected:
  Healing() { AddDrives(1000); }
  // A recording of three frames so long ago, without what its index held; with `hollow` only a
  // record in the middle is lost, which neither head nor end of the index tell.
  std::string Hurt(std::int64_t hoursAgo, bool hollow = false) {
    const std::int64_t time = kNow - hoursAgo * kHour;
    const std::string path = PlantReal("a/", time, kCamera + hollow, 0xFF, 1, time, 3);
    if (!hollow) {
      WriteFile(path + "i", 0);
      return path;
    }
    std::fstream index(path + "i", std::ios::binary | std::ios::in | std::ios::out);
    index.seekp(1088 + 32);
    index << std::string(32, '\0');
    return path;
  }
  [[nodiscard]] bool IsHealed(const std::string& path) {
    qv::kelvo::PSReader reader(files);
    qv::kelvo::PSReadFrame second;
    second.index = 1;
    return reader.Open(path) == 0 && reader.HasIndex() && reader.GetFrame(second) == 0;
  }
  void Heal() {
    Open();
    storage->HealRecordings();
    ASSERT_TRUE(host.WaitForLine("Healing - a/ in "));
  }
};

TEST_F(Healing, MendsTheTwoDaysBeforeTheLastRecordingAndWhatASearchReports) {
  const std::string last = Hurt(24 * 30), early = Hurt(24 * 32), older = Hurt(24 * 32 + 1);
  Heal();
  EXPECT_TRUE(IsHealed(last) && IsHealed(early));
  EXPECT_FALSE(IsHealed(older));
  EXPECT_EQ(host.CountLines(50, "Healing - " + last + " has a new index of 3 frames"), 1u);
  storage->NoteUnreadable(older);
  EXPECT_TRUE(host.WaitForLine("Healing - " + older));
  EXPECT_TRUE(IsHealed(older));
}

TEST_F(Healing, LooksIntoRecordingsThatStandBesideDamageOnly) {
  Hurt(1);
  const std::string apart = Hurt(3, true), beside = Hurt(5, true), before = Hurt(6, true);
  Hurt(5);
  Heal();
  EXPECT_TRUE(IsHealed(beside) && IsHealed(before));
  EXPECT_FALSE(IsHealed(apart));
}

TEST_F(Healing, TouchesNothingThatIsWrittenOrThatASearchMayRead) {
  const std::string read = Hurt(1);
  Heal();
  const std::string written = Hurt(2), searched = Hurt(3);
  storage->Disk().Opened("a/", written, written + "i");
  auto held = storage->HoldRecordings(kNow - 3 * kHour - 10, kNow - 3 * kHour + 10);
  for (const auto& path : {written, searched, read}) storage->NoteUnreadable(path);
  const std::string another = Hurt(4);
  storage->NoteUnreadable(another);
  EXPECT_TRUE(host.WaitForLine("Healing - " + another));
  EXPECT_FALSE(IsHealed(written) || IsHealed(searched));
  held = nullptr;
  EXPECT_TRUE(host.WaitForLine("Healing - " + searched));
  EXPECT_TRUE(IsHealed(searched));
}

TEST_F(Healing, LeavesNothingBehindThatTheCleanupWouldKeep) {
  const std::string path = Hurt(48);
  for (const char* const aside : {"i.psi", "i.psm"}) WriteFile(path + aside);
  const std::atomic<bool> stop{false};
  FsCleanup(platform, {"a/"}, stop, true);
  EXPECT_TRUE(Exists(path) && Exists(path + "i"));
  EXPECT_FALSE(Exists(path + "i.psi") || Exists(path + "i.psm"));
}

}  // namespace
}  // namespace qvsvr::kelvo
