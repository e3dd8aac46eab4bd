#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <cstdlib>

#include "platform/Files.h"
#include "storage/Cleanup.h"
#include "storage/StatusReport.h"
#include "tests/storage/RecordingForest.h"

// Files that another program has open without sharing them, and that it lets go of when waited for.
namespace qvsvr::kelvo {
namespace {

class HeldFiles : public RecordingForest {
 protected:
  HeldFiles() { AddDrives(1000); }
  void Hold(const std::string& path) {
    held = CreateFileA(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    EXPECT_NE(held, INVALID_HANDLE_VALUE);
    clock.onPause = [this, pauses = 0]() mutable {
      if (++pauses == 10) LetGo();
    };
  }
  void LetGo() {
    if (held != nullptr) CloseHandle(std::exchange(held, nullptr));
  }
  HANDLE held = nullptr;
};

TEST_F(HeldFiles, DriveTestWaitsForWhoeverLooksAtItsFileOrDirectory) {
  ReadWriteTest test(platform);
  EXPECT_TRUE(test.Run("a\\"));
  for (const char* path : {"a\\kelvo\\test.bin", "a\\kelvo"}) {
    Hold(path);
    EXPECT_TRUE(test.Run("a\\")) << path;
    EXPECT_EQ(held, nullptr);
  }
}

TEST_F(HeldFiles, SettingsThatAreHeldOrMarkedReadOnlyAreReadAndSaved) {
  Open();
  for (int days = 5; days < 8; ++days) {
    Hold("kelvo.xml");
    Open();
    EXPECT_EQ(held, nullptr);
    SetFileAttributesA("kelvo.xml", FILE_ATTRIBUTE_READONLY);
    Apply("<Storage ID='327680' TimeLapse='" + std::to_string(days) + "'/>");
    storage->SaveStorage();
    Open();
    EXPECT_EQ(storage->Lapse().timeLapse, days);
    EXPECT_FALSE(Exists("kelvo.xml.bak"));
  }
}

TEST_F(HeldFiles, RecordingThatIsHeldKeepsItsIndexAndAReadOnlyOneGoes) {
  const std::string path = "a/2024/05/06/07/0800-00110000.ps";
  for (const char* suffix : {"", "i"}) WriteFile(path + suffix);
  Hold(path);
  EXPECT_FALSE(RemoveRecording(path, "a/"));
  EXPECT_TRUE(Exists(path) && Exists(path + 'i'));
  LetGo();
  SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
  EXPECT_TRUE(RemoveRecording(path, "a/"));
  EXPECT_FALSE(Exists("a/2024"));
}

// What Wine doesn't have: tools/windows/check.ps1 prepares a machine and names the places.
class RealMachine : public RecordingForest {
 protected:
  // Empty elsewhere.
  static std::string Prepared(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
  }
};

TEST_F(RealMachine, MountFolderStaysAndNothingIsMeasuredBelowItWithoutItsVolume) {
  const std::string mount = Prepared("KELVO_MOUNT_FOLDER"), volume = Prepared("KELVO_MOUNT_VOLUME");
  if (mount.empty()) GTEST_SKIP();
  const std::string path = mount + "2024\\05\\06\\07\\0800-00110000.ps";
  WriteFile(path);
  EXPECT_TRUE(RemoveRecording(path, mount));
  EXPECT_FALSE(Exists(mount + "2024"));
  EXPECT_TRUE(qv::kelvo::IsNotEmpty(qv::kelvo::RemoveEmptyDirectory(mount)));
  DriveMeter meter(qv::kelvo::SystemPlatform().drives);
  std::uint32_t total = 0, free = 0;
  EXPECT_TRUE(meter.Measure(mount, total, free));
  ASSERT_EQ(std::system(("mountvol " + mount + " /D").c_str()), 0);
  EXPECT_FALSE(meter.Measure(mount, total, free));
  ASSERT_EQ(std::system(("mountvol " + mount + " " + volume).c_str()), 0);
  EXPECT_TRUE(meter.Measure(mount, total, free));
}

// A year that leads to another disk, which holds an hour with debris.
TEST_F(RealMachine, JunctionStaysWhenItsTreeIsCleaned) {
  const std::string root = Prepared("KELVO_JUNCTION_ROOT");
  if (root.empty()) GTEST_SKIP();
  WriteFile(root + "2024\\05\\06\\07\\0800-00110000.psi");
  const std::atomic<bool> stop{false};
  EXPECT_EQ(
      FsCleanup(platform, {root}, stop, true, [](const auto&) { return false; }).orphanedFiles, 1u);
  EXPECT_FALSE(Exists(root + "2024\\05"));
  EXPECT_TRUE(Exists(root + "2024"));
}

TEST_F(RealMachine, DeduplicatedFileIsAFile) {
  const std::string path = Prepared("KELVO_DEDUPLICATED_XML");
  if (path.empty()) GTEST_SKIP();
  EXPECT_NE(GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_REPARSE_POINT, 0u);
  XmlDocument document;
  EXPECT_EQ(document.LoadFile(platform, path), XmlFileState::Good);
}

}  // namespace
}  // namespace qvsvr::kelvo
