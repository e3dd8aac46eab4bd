#include "storage/NetworkTargets.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "host/Log.h"
#include "storage/CFileSystem.h"
#include "tests/storage/ParsedXml.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvsvr::kelvo {
namespace {

using Names = std::vector<std::string>;

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
  void Fill(const std::string& children) {
    network.ReplaceArchives(ParsedXml("<Archives>" + children + "</Archives>").Root(),
                            bundle.clock);
  }
  // Both forms, as the worker applies them.
  bool Configure(const std::string& children) {
    return storage.ApplyArchivesXml(ParsedXml("<Archives>" + children + "</Archives>").Root());
  }
  void Report(const std::string& children) {
    storage.ApplyArchiveStatus(ParsedXml("<Archives>" + children + "</Archives>").Root());
  }
  Names Volumes(std::uint32_t flags) {
    Names list;
    storage.GetVolumes(list, flags, nullptr);
    for (std::string& volume : list) volume = qv::kelvo::Slashed(volume);
    return list;
  }
  std::size_t Targets() {
    qv::kelvo::TargetList list;
    storage.GetTargets(list, qv::kelvo::kVolumesArchive, nullptr);
    return list.size();
  }
  // The lines about network drives since the last call.
  Names Told() {
    Names lines;
    for (const auto& line : host.Lines()) {
      if (line.level == LogInfo && line.text.find("iSCSI") != std::string::npos) {
        lines.push_back(line.text);
      }
    }
    host.ForgetTraffic();
    return lines;
  }

  FakeHost host;
  qv::kelvo::TestBundle bundle;
  FakeCore core{bundle.clock};
  NetworkTargets network;
  CFileSystem storage{core, bundle.platform};
};

TEST_F(NetworkTargetsTest, TakesArchivesThatHaveAllTheyNeed) {
  Fill(Archive("ID='1' Enabled='1' Type='3' Address='a'") +
       Archive("ID='2' Enabled='1' Type='3' Address='' MountPoint='/m'") +
       Archive("ID='3' Enabled='1' Type='x' Address='a' MountPoint='/m'") +
       Archive("ID='4' Enabled='0' Type='3' Address='a' MountPoint='/m'") +
       Archive("Enabled='1' Type='3' Address='a' MountPoint='/m'") + Local(6, "/old") +
       Archive("ID='6' Enabled='-1' Type='3' Address='a6' MountPoint='/m6' Username=''") +
       Archive("ID='7' Enabled='1' Type='2' Address='a7' MountPoint='/m7/' Username='u'"
               " Password='p'"));
  ASSERT_EQ(network.archives.size(), 2u);
  qvArchiving::ScannerProperties expected = {{"CacheEnable", "true"},
                                             {"CacheSizeGigabytes", "50"},
                                             {"CacheRetentionSeconds", "604800"},
                                             {"FullyMountedPath", "/m6"},
                                             {"FullName", "a6"},
                                             {"Type", "3"},
                                             {"UserName", ""}};
  EXPECT_EQ(network.archives.at(6)->Properties(), expected);
  expected["FullyMountedPath"] = "/m7/";
  expected["FullName"] = "a7";
  expected["Type"] = "2";
  expected["UserName"] = "u";
  expected["Password"] = "p";
  EXPECT_EQ(network.archives.at(7)->Properties(), expected);
  EXPECT_TRUE(host.Lines().empty());
  Fill("");
  EXPECT_TRUE(network.archives.empty());
}

TEST_F(NetworkTargetsTest, LogsTargetsThatCannotBeMadeAndKeepsTheOthers) {
  const std::string secret = "Password='hunter2' Username='key'";
  Fill(Archive("ID='1' Enabled='1' Type='4' Address='a' MountPoint='/m' " + secret) +
       Archive("ID='2' Enabled='1' Type='5' Address='nowhere' MountPoint='/m' " + secret) +
       Archive("ID='3' Enabled='1' Type='5' Address='b.s3.eu-west-1.amazonaws.com'"
               " MountPoint='/m' Password='hunter2'") +
       Local(4));
  ASSERT_EQ(network.archives.size(), 1u);
  EXPECT_TRUE(network.archives.contains(4));
  EXPECT_EQ(host.CountLines(LogError, "Error creating target interface"), 3u);
  EXPECT_EQ(host.CountLines("hunter2"), 0u);
}

TEST_F(NetworkTargetsTest, ArchivesAreOfferedOnceBothMessagesTellOfThem) {
  Report("<Archive ID='1' Status='0'/><Archive ID='3' Status='1'/><Archive ID='2'/>");
  EXPECT_EQ(Targets(), 0u);
  EXPECT_FALSE(Configure(Local(1, "/one") + Local(2, "/two/") + Local(3, "/three/")));
  EXPECT_EQ(Volumes(qv::kelvo::kVolumesArchive), (Names{"/one/", "/three/"}));
  Report("<Archive ID='2' Status='7'/><Archive ID='1' Status='-1'/>");
  EXPECT_EQ(Volumes(qv::kelvo::kVolumesArchive), (Names{"/two/", "/three/"}));

  qv::kelvo::TargetList held;
  storage.GetTargets(held, qv::kelvo::kVolumesArchive, nullptr);
  EXPECT_FALSE(Configure(""));
  EXPECT_EQ(Targets(), 0u);
  ASSERT_EQ(held.size(), 2u);
  EXPECT_EQ(held[0]->Properties().at("FullyMountedPath"), "/two/");
  EXPECT_EQ(held[0].use_count(), 1) << "only its searches hold a target that was replaced";
  EXPECT_FALSE(Configure(Local(3)));
  EXPECT_EQ(Targets(), 1u) << "the state outlives the configuration";
}

TEST_F(NetworkTargetsTest, NetworkDrivesComeAndGo) {
  bundle.drives.Add("/d/local/");
  bundle.clock.SetNow(1'700'000'000'999);
  storage.LoadStorage();
  host.ForgetTraffic();
  const std::string on = Target("Enabled='5' ID='7'", {"/n/b/", "/n/a/", "/d/local/"});
  EXPECT_TRUE(Configure(on));
  EXPECT_EQ(Told(), (Names{"Drive /n/a/ (ID 5) discovered via iSCSI.",
                           "Drive /n/b/ (ID 5) discovered via iSCSI."}));
  EXPECT_FALSE(Configure(on));
  EXPECT_FALSE(Configure(on + Target("Enabled='9'", {"/n/c/"}) + Target("ID='9'", {"/n/c/"})));
  EXPECT_TRUE(Told().empty());

  // The number is the value of Enabled; a local drive that is named becomes subject to it.
  EXPECT_TRUE(Volumes(qv::kelvo::kVolumesLocal).empty());
  Report(Target("ID='7' Status='0'"));
  EXPECT_TRUE(Told().empty());
  EXPECT_TRUE(Volumes(qv::kelvo::kVolumesLocal).empty());
  Report(Target("ID='5' Status='0'") + Target("ID='5' Status='1'"));
  EXPECT_EQ(Told().size(), 3u);
  EXPECT_EQ(Volumes(qv::kelvo::kVolumesLocal), (Names{"/d/local/", "/n/a/", "/n/b/"}));

  // Another number alone is no change of drives.
  EXPECT_FALSE(Configure(Target("Enabled='6' ID='7'", {"/n/b/", "/n/a/", "/d/local/"})));
  EXPECT_TRUE(Told().empty());
  EXPECT_TRUE(Volumes(qv::kelvo::kVolumesLocal).empty());

  EXPECT_TRUE(Configure(Target("Enabled='0' ID='7'", {"/n/a/"}) +
                        Target("Enabled='6' ID='8'", {"/d/local/", "/n/a/"})));
  ASSERT_EQ(host.Events().size(), 1u);
  EXPECT_EQ(host.Events()[0].eventClass, 4u);
  EXPECT_EQ(host.Events()[0].text,
            R"(<?xml ?><qDVR><Storage ID="327680"><Drive Name="/n/b/" Alarm="1")"
            R"( Time="1700000000" Message="Drive not found" /></Storage></qDVR>)");
  EXPECT_EQ(Told(), Names{"Drive /n/b/ (ID 6) disappeared via iSCSI."});
  EXPECT_TRUE(Configure(""));
  EXPECT_EQ(Told().size(), 2u) << "the local drive that was named leaves, too";
}

TEST_F(NetworkTargetsTest, TellsChangesOfStateOnce) {
  ASSERT_TRUE(Configure(Target("Enabled='1' ID='1'", {"/n/b/", "/n/a/"}) +
                        Target("Enabled='2' ID='2'", {"/n/c/"})));
  Told();
  const std::pair<const char*, std::string> steps[] = {
      {"ID='1' Status='-1'", ""},
      {"ID='1' Status='1'", ""},
      {"Status='0'", ""},
      {"ID='1' Status='0'", "now writable"},
      {"ID='1' Status='0'", ""},
      {"ID='1' Status='2'", ""},
      {"ID='1'", ""},
      {"ID='1' Status='-3'", "inaccessible"},
      {"ID='1' Status='-3'", ""},
  };
  for (const auto& [attributes, told] : steps) {
    SCOPED_TRACE(attributes);
    Report(Target(attributes));
    EXPECT_TRUE(host.Events().empty());
    const Names lines{"Drive /n/a/ (ID 1) " + told + " via iSCSI.",
                      "Drive /n/b/ (ID 1) " + told + " via iSCSI."};
    EXPECT_EQ(Told(), told.empty() ? Names{} : lines);
  }
}

// The thread sanitizer looks on: searches ask for drives and targets while the worker changes them.
TEST_F(NetworkTargetsTest, VolumesAndTargetsCanBeAskedWhileTheyChange) {
  bundle.drives.Add("/d/local/");
  storage.LoadStorage();
  Report("<Archive ID='1' Status='0'/>" + Target("ID='5' Status='0'"));
  std::atomic<bool> done{false};
  std::atomic<int> looks{0};
  std::thread reader([&] {
    while (!done) {
      qv::kelvo::TargetList targets;
      storage.GetTargets(targets, qv::kelvo::kVolumesArchive, nullptr);
      for (const auto& target : targets) EXPECT_EQ(target->Properties().at("FullName"), "a");
      const Names now = Volumes(qv::kelvo::kVolumesLocal);
      EXPECT_TRUE(now == Names{"/d/local/"} || now == (Names{"/d/local/", "/n/a/"}));
      ++looks;
    }
  });
  for (int i = 0; i < 200 || looks < 200; ++i) {
    Configure(i % 2 == 0 ? Local(1) : Target("Enabled='5' ID='7'", {"/n/a/"}));
  }
  done = true;
  reader.join();
}

}  // namespace
}  // namespace qvsvr::kelvo
