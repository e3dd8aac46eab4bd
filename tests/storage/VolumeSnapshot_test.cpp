#include "storage/VolumeSnapshot.h"

#include <gtest/gtest.h>

#include "archiving/CLocalDiskScanner.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::ArchiveFilter;
using qv::kelvo::kVolumesArchive;
using qv::kelvo::kVolumesLocal;
using Names = std::vector<std::string>;

NetworkTargets FourArchives() {
  const auto archive = [](const qvArchiving::ScannerProperties& properties) {
    return std::make_shared<qvArchiving::CLocalDiskScanner>(properties);
  };
  NetworkTargets network;
  network.archives[3] = archive({{"FullyMountedPath", "/mnt/three"}});
  network.archives[1] = archive({{"FullyMountedPath", "/mnt/one/"}});
  network.archives[2] = archive({{"FullyMountedPath", "/mnt/silent"}});
  network.archives[4] = archive({{"Bucket", "b"}});
  network.accessibleArchives = {1, 3, 4};
  return network;
}

TEST(VolumeSnapshot, ListsDrivesThenMountedPathsOfAccessibleArchives) {
  const VolumeSnapshot snapshot({"/d/b/", "/d/a/"}, FourArchives());
  const ArchiveFilter withoutThree{{3, false}, {1, true}};
  const ArchiveFilter empty;
  struct Case {
    std::uint32_t flags;
    const ArchiveFilter* filter;
    Names expected;
    std::size_t targets;
  };
  const Case cases[] = {
      {0, nullptr, {}, 0},
      {kVolumesLocal, nullptr, {"/d/b/", "/d/a/"}, 0},
      {kVolumesArchive, nullptr, {"/mnt/one/", "/mnt/three/", ""}, 3},
      {kVolumesArchive, &empty, {"/mnt/one/", "/mnt/three/", ""}, 3},
      {kVolumesLocal | kVolumesArchive, &withoutThree, {"/d/b/", "/d/a/", "/mnt/one/", ""}, 2},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.flags);
    Names volumes{"left over"};
    snapshot.ListVolumes(volumes, row.flags, row.filter);
    EXPECT_EQ(volumes, row.expected);
    qv::kelvo::TargetList targets(1);
    snapshot.ListTargets(targets, row.flags, row.filter);
    EXPECT_EQ(targets.size(), row.targets);
  }
}

TEST(VolumeSnapshot, StaysAsItWasWhileANewOneIsPublished) {
  PublishedSnapshot published;
  EXPECT_NE(published.Current(), nullptr);
  published.Publish(VolumeSnapshot({"/old/"}, {}));
  const auto held = published.Current();
  published.Publish(VolumeSnapshot({"/new/"}, {}));
  Names volumes;
  held->ListVolumes(volumes, kVolumesLocal, nullptr);
  EXPECT_EQ(volumes, Names{"/old/"});
  published.Current()->ListVolumes(volumes, kVolumesLocal, nullptr);
  EXPECT_EQ(volumes, Names{"/new/"});
}

TEST(NetworkTargets, OnlyAnUnreportedNetworkDriveIsNotWritable) {
  NetworkTargets network;
  network.iscsiDrives = {{"/mnt/net/", 7}};
  EXPECT_TRUE(network.IsVolumeWritable("/d/local/"));
  EXPECT_FALSE(network.IsVolumeWritable("/mnt/net/"));
  network.writableTargets = {7};
  EXPECT_TRUE(network.IsVolumeWritable("/mnt/net/"));
}

}  // namespace
}  // namespace qvsvr::kelvo
