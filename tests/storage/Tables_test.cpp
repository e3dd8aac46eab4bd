// The small tables that the storage manager is made of.
#include <gtest/gtest.h>

#include <limits>

#include "archiving/CLocalDiskScanner.h"
#include "storage/DriveTable.h"
#include "storage/RecordVolume.h"
#include "storage/RetentionRules.h"
#include "storage/VolumeSnapshot.h"
#include "tests/support/TempTree.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::ArchiveFilter;
using qv::kelvo::kVolumesArchive;
using qv::kelvo::kVolumesLocal;
using Names = std::vector<std::string>;

TEST(DriveTable, SystemDriveIsOffBesideOthersAndKeepsATenth) {
  const struct {
    Names names;
    std::string system;  // directory
    std::string name;    // of the drive looked at
    bool isSystem, disabled;
  } rows[] = {
      {{"/m/a/"}, "/m/a/os", "/m/a/", true, false},
      {{"/m/a/", "/m/b/"}, "/m/a/os", "/m/a/", true, true},
      {{"/m/a/", "/m/b/"}, "/m/a/os", "/m/b/", false, false},
      {{"/m/a/", "/m/b/"}, "", "/m/a/", false, false},
      // Anywhere in the text counts, not only at its start.
      {{"/os/", "/m/b/"}, "/m/os/lib", "/os/", true, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name + " with " + row.system);
    DriveTable table;
    table.drives["/left over/"].disabled = true;
    table.Fill(row.names, row.system);
    ASSERT_EQ(table.drives.size(), row.names.size());
    const DriveRecord& record = table.drives.at(row.name);
    EXPECT_EQ(record.system, row.isSystem);
    EXPECT_EQ(record.disabled, row.disabled);
    EXPECT_EQ(record.reservePercent, row.isSystem ? 10 : 0);
  }
}

TEST(RecordVolume, UsableSpaceLeavesReservationsAndReserve) {
  EXPECT_EQ(UsableGB(1000, 99, 0, 10), -1);
  EXPECT_EQ(UsableGB(1000, 500, 20, 10), 380);
  EXPECT_EQ(UsableGB(199, 50, 0, 1), 49);  // the reserve is cut to whole GB
  EXPECT_EQ(UsableGB(4'000'000'000u, 4'000'000'000u, 0, 100), 0);
  EXPECT_EQ(UsableGB(10, 5, 5'000'000'000, 0), -4'999'999'995);
}

TEST(RetentionRules, CountsOnlyRealChangesAndKeepsDaysNegatable) {
  constexpr auto kMin = std::numeric_limits<std::int32_t>::min();
  constexpr auto kMax = std::numeric_limits<std::int32_t>::max();
  const struct {
    int type;
    std::int32_t days, expected;
    std::uint32_t changes;
  } steps[] = {
      {3, 10, 0, 0},   {-1, 10, 0, 0},     {0, 10, 0, 0},       {1, 10, 10, 1}, {1, 10, 10, 1},
      {2, 10, -10, 2}, {2, kMin, kMax, 3}, {2, kMax, -kMax, 4}, {0, 77, 0, 5},  {1, kMin, -kMax, 6},
  };
  RetentionRules rules;
  for (const auto& step : steps) {
    rules.SetExpiration(step.type, step.days);
    EXPECT_EQ(rules.expirationDays, step.expected) << step.type << " " << step.days;
    EXPECT_EQ(rules.expirationChanges, step.changes) << step.type << " " << step.days;
  }
  for (const int age : {-1, 0, 3600, 3600}) rules.SetContentAge(age);
  EXPECT_EQ(rules.contentAge, 3600);
  for (const bool on : {false, true, true, false}) rules.SetPreserveAudio(on);
  EXPECT_EQ(rules.preserveAudioChanges, 2u);

  // Forgetting a provider leaves the others; bits outside the provider don't count.
  const auto id = qv::kelvo::MakeStreamID;
  rules.SetCameraExpiration(id(0, 0x00110000, 1, 2), 1, 30);
  rules.SetCameraExpiration(id(15, 0x00110000, 255, 0), 2, 7);
  EXPECT_EQ(rules.cameraExpiration.at(id(15, 0x00110000, 255, 0)), -7);
  rules.SetCameraExpiration(id(0, 0x00120000, 1, 2), 2, kMin);
  rules.SetCameraExpiration(id(0, 0x00120000, 1, 3), 0, kMin);
  rules.AddKnownDevice(0x10110005);
  rules.AddKnownDevice(0x00120000);
  rules.ForgetDevice(0xF0110000);
  EXPECT_EQ(rules.knownDevices, std::set<std::uint32_t>{0x00120000});
  const std::map<qv::kelvo::StreamID, std::int32_t> left{{id(0, 0x00120000, 1, 2), kMax},
                                                         {id(0, 0x00120000, 1, 3), -kMax}};
  EXPECT_EQ(rules.cameraExpiration, left);
}

TEST(VolumeSnapshot, ListsDrivesThenMountedPathsOfAccessibleArchives) {
  const auto archive = [](const qvArchiving::ScannerProperties& properties) {
    return std::make_shared<qvArchiving::CLocalDiskScanner>(properties);
  };
  NetworkTargets network;
  network.archives[3] = archive({{"FullyMountedPath", "/mnt/three"}});
  network.archives[1] = archive({{"FullyMountedPath", "/mnt/one/"}});
  network.archives[2] = archive({{"FullyMountedPath", "/mnt/silent"}});
  network.archives[4] = archive({{"Bucket", "b"}});
  network.accessibleArchives = {1, 3, 4};
  const VolumeSnapshot snapshot({"/d/b/", "/d/a/"}, network);
  const ArchiveFilter withoutThree{{3, false}, {1, true}};
  const ArchiveFilter empty;
  const struct {
    std::uint32_t flags;
    const ArchiveFilter* filter;
    Names expected;
    std::size_t targets;
  } rows[] = {
      {0, nullptr, {}, 0},
      {kVolumesLocal, nullptr, {"/d/b/", "/d/a/"}, 0},
      {kVolumesArchive, nullptr, {"/mnt/one/", "/mnt/three/", ""}, 3},
      {kVolumesArchive, &empty, {"/mnt/one/", "/mnt/three/", ""}, 3},
      {kVolumesLocal | kVolumesArchive, &withoutThree, {"/d/b/", "/d/a/", "/mnt/one/", ""}, 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.flags);
    Names volumes{"left over"};
    snapshot.ListVolumes(volumes, row.flags, row.filter);
    for (std::string& volume : volumes) volume = qv::kelvo::Slashed(volume);
    EXPECT_EQ(volumes, row.expected);
    qv::kelvo::TargetList targets(1);
    snapshot.ListTargets(targets, row.flags, row.filter);
    EXPECT_EQ(targets.size(), row.targets);
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
