#include "storage/NetworkTargets.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include "storage/CFileSystem.h"
#include "tests/storage/ParsedXml.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvsvr::kelvo {
namespace {

using Names = std::vector<std::string>;
using qv::kelvo::kVolumesArchive;
using qv::kelvo::kVolumesLocal;

std::string Archive(const std::string& attributes) {
  return "<Archive " + attributes + "/>";
}
std::string Local(int id, const std::string& path = "/m") {
  return Archive("ID='" + std::to_string(id) + "' Enabled='1' Type='3' Address='a' MountPoint='" +
                 path + "'");
}
std::string Target(const std::string& attributes, const Names& mounts = {}) {
  std::string text = "<Portal><Target " + attributes + ">";
  for (const std::string& mount : mounts) text += "<Partition MountPoint='" + mount + "'/>";
  return text + "<Partition/><Partition MountPoint=''/></Target></Portal>";
}

class NetworkTargetsTest : public ::testing::Test {
 protected:
  // Both forms, as the worker applies them.
  bool Configure(const std::string& children) {
    return storage.ApplyArchivesXml(ParsedXml("<Archives>" + children + "</Archives>").Root());
  }
  void Report(const std::string& children) {
    storage.ApplyArchiveStatus(ParsedXml("<Archives>" + children + "</Archives>").Root());
  }
  Names Volumes(std::uint32_t flags, const qv::kelvo::ArchiveFilter& filter = {}) {
    Names list{"left over"};
    storage.GetVolumes(list, flags, &filter);
    for (std::string& volume : list) volume = qv::kelvo::Slashed(volume);
    return list;
  }
  qv::kelvo::TargetList Targets(const qv::kelvo::ArchiveFilter& filter = {}) {
    qv::kelvo::TargetList list(1);
    storage.GetTargets(list, kVolumesArchive, &filter);
    return list;
  }

  FakeHost host;
  qv::kelvo::TestBundle bundle;
  FakeCore core{bundle.clock};
  CFileSystem storage{core, bundle.platform};
};

TEST_F(NetworkTargetsTest, TakesArchivesThatHaveAllTheyNeed) {
  Report(Archive("ID='6' Status='0'") + Archive("ID='7' Status='0'"));
  const std::string secret = "' Password='hunter2' Username='key'";
  Configure(Archive("ID='6' Enabled='1' Type='3' Address='a'") +
            Archive("ID='6' Enabled='1' Type='3' Address='' MountPoint='/m'") +
            Archive("ID='6' Enabled='1' Type='x' Address='a' MountPoint='/m'") +
            Archive("ID='6' Enabled='0' Type='3' Address='a' MountPoint='/m'") +
            Archive("Enabled='1' Type='3' Address='a' MountPoint='/m'"));
  EXPECT_TRUE(Targets().empty());
  EXPECT_TRUE(host.Lines().empty());
  // What can't be made is told; the others stay.
  Configure(Archive("ID='6' Enabled='1' Type='4' Address='a' MountPoint='/m" + secret) +
            Archive("ID='6' Enabled='1' Type='5' Address='nowhere' MountPoint='/m" + secret) +
            Archive("ID='6' Enabled='-1' Type='3' Address='a6' MountPoint='/m6' Username=''") +
            Archive("ID='7' Enabled='1' Type='2' Address='a7' MountPoint='/m7/' Password='p'"));
  EXPECT_EQ(host.CountLines(75, "Error creating target interface"), 2u);
  EXPECT_EQ(host.CountLines("hunter2"), 0u);
  const auto targets = Targets();
  ASSERT_EQ(targets.size(), 2u);
  const qvArchiving::ScannerProperties expected = {{"CacheEnable", "true"},
                                                   {"CacheSizeGigabytes", "50"},
                                                   {"CacheRetentionSeconds", "604800"},
                                                   {"FullyMountedPath", "/m6"},
                                                   {"FullName", "a6"},
                                                   {"Type", "3"},
                                                   {"UserName", ""}};
  EXPECT_EQ(targets[0]->Properties(), expected);
  EXPECT_EQ(targets[1]->Properties().at("Type"), "2");
  EXPECT_EQ(targets[1]->Properties().at("Password"), "p");
}

TEST_F(NetworkTargetsTest, ArchivesAreOfferedOnceBothMessagesTellOfThem) {
  Report("<Archive ID='1' Status='0'/><Archive ID='3' Status='1'/><Archive ID='2'/>");
  EXPECT_TRUE(Targets().empty());
  EXPECT_FALSE(Configure(Local(1, "/one") + Local(2, "/two/") + Local(3, "/three/")));
  EXPECT_EQ(Volumes(kVolumesArchive), (Names{"/one/", "/three/"}));
  EXPECT_EQ(Volumes(0), Names{});
  Report("<Archive ID='2' Status='7'/><Archive ID='1' Status='-1'/>");
  EXPECT_EQ(Volumes(kVolumesArchive | kVolumesLocal), (Names{"/two/", "/three/"}));
  EXPECT_EQ(Volumes(kVolumesArchive, {{2, false}, {3, true}}), Names{"/three/"});
  EXPECT_EQ(Targets({{2, false}}).size(), 1u);

  const auto held = Targets();
  EXPECT_FALSE(Configure(""));
  EXPECT_TRUE(Targets().empty());
  ASSERT_EQ(held.size(), 2u);
  EXPECT_EQ(held[0]->Properties().at("FullyMountedPath"), "/two/");
  EXPECT_EQ(held[0].use_count(), 1) << "only its searches hold a target that was replaced";
  EXPECT_FALSE(Configure(Local(3)));
  EXPECT_EQ(Targets().size(), 1u) << "the state outlives the configuration";
}

// The cache's limits would delete recordings.
TEST_F(NetworkTargetsTest, BucketWhoseCopiesWouldShareADirectoryWithADriveIsRefused) {
  const qv::kelvo::TempTree tree;
  const std::string drive = tree.MakeDirectory("disks/a");
  boost::filesystem::create_directory_symlink(tree.Path("disks"), tree.Path("link"));
  const bool link = boost::filesystem::is_symlink(tree.Path("link"));  // not every system tells
  bundle.drives.Add(drive);
  storage.LoadStorage();
  Report(Archive("ID='1' Status='0'"));
  const auto bucket = [](const std::string& mount) {
    return Archive(
        "ID='1' Enabled='1' Type='5' Address='b.s3.us-east-1.x' Username='u' Password='p'"
        " MountPoint='" +
        mount + "'");
  };
  const std::pair<std::string, bool> cases[] = {{drive, false},
                                                {tree.Path("disks/a"), false},
                                                {drive + "copies/deep", false},
                                                {tree.Root(), false},
                                                {"/", false},
                                                {link ? tree.Path("link/a/x") : drive, false},
                                                {tree.Path("other/../disks/a"), false},
                                                {tree.Path("disks/ab"), true},
                                                {tree.Path("copies"), true}};
  for (const auto& [mount, taken] : cases) {
    host.ForgetTraffic();
    Configure(bucket(mount));
    EXPECT_EQ(Targets().size(), taken ? 1u : 0u) << mount;
    EXPECT_EQ(host.CountLines(75, "Archive 1 refused: its mount point "), taken ? 0u : 1u) << mount;
  }
  // A drive that comes later.
  Configure(bucket(tree.Path("copies")) + Target("Enabled='5' ID='7'", {tree.Path("copies/net/")}));
  EXPECT_TRUE(Targets().empty());
}

TEST_F(NetworkTargetsTest, NetworkDrivesComeAndGo) {
  bundle.drives.Add("/d/local/");
  bundle.clock.SetNow(1'700'000'000'999);
  storage.LoadStorage();
  const std::string on = Target("Enabled='5' ID='7'", {"/n/b/", "/n/a/", "/d/local/"});
  EXPECT_TRUE(Configure(on));
  EXPECT_FALSE(Configure(on));
  EXPECT_FALSE(Configure(on + Target("Enabled='9'", {"/n/c/"}) + Target("ID='9'", {"/n/c/"})));

  // The number is the value of Enabled; a local drive that is named becomes subject to it. Only a
  // status of 0 or below it says something.
  const Names all{"/d/local/", "/n/a/", "/n/b/"};
  EXPECT_EQ(Volumes(kVolumesLocal), Names{});
  const std::pair<const char*, Names> steps[] = {
      {"ID='7' Status='0'", {}},  {"ID='5' Status='1'", {}}, {"ID='5' Status='0'", all},
      {"ID='5' Status='1'", all}, {"Status='-1'", all},      {"ID='5' Status='-3'", {}},
      {"ID='5' Status='0'", all},
  };
  for (const auto& [attributes, volumes] : steps) {
    Report(Target(attributes));
    EXPECT_EQ(Volumes(kVolumesLocal), volumes) << attributes;
  }
  // Another number alone is no change of drives.
  host.ForgetTraffic();
  EXPECT_FALSE(Configure(Target("Enabled='6' ID='7'", {"/n/b/", "/n/a/", "/d/local/"})));
  EXPECT_EQ(Volumes(kVolumesLocal), Names{});
  EXPECT_TRUE(host.Lines().empty());

  EXPECT_TRUE(Configure(Target("Enabled='0' ID='7'", {"/n/a/"}) +
                        Target("Enabled='6' ID='8'", {"/d/local/", "/n/a/"})));
  ASSERT_EQ(host.Events().size(), 1u);
  EXPECT_EQ(host.Events()[0].eventClass, 4u);
  EXPECT_EQ(host.Events()[0].text,
            R"(<?xml ?><qDVR><Storage ID="327680"><Drive Name="/n/b/" Alarm="1")"
            R"( Time="1700000000" Message="Drive not found" /></Storage></qDVR>)");
  EXPECT_EQ(host.CountLines(25, "Drive /n/b/ (ID 6) disappeared via iSCSI."), 1u);
  EXPECT_TRUE(Configure(""));
  EXPECT_EQ(host.Events().size(), 3u) << "the local drive that was named leaves, too";
}

}  // namespace
}  // namespace qvsvr::kelvo
