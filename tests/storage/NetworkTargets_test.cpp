// Archives and network drives as a conversation: what the host tells of them, and what is offered
// to searches and recording behind it. It stands in network_targets.txt.
#include <gtest/gtest.h>

#include <boost/algorithm/string/replace.hpp>
#include <boost/filesystem.hpp>
#include <sstream>

#include "storage/CFileSystem.h"
#include "tests/storage/ParsedXml.h"
#include "tests/support/Conversation.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::kVolumesArchive;
using qv::kelvo::kVolumesLocal;

class NetworkTargets : public ::testing::TestWithParam<testsupport::Conversation> {
 protected:
  // Both forms, as the worker applies them.
  bool Configure(const std::string& children) {
    return storage.ApplyArchivesXml(ParsedXml("<Archives>" + children + "</Archives>").Root());
  }
  void Report(const std::string& children) {
    storage.ApplyArchiveStatus(ParsedXml("<Archives>" + children + "</Archives>").Root());
  }
  qv::kelvo::TargetList Targets() {
    qv::kelvo::TargetList list(1);
    storage.GetTargets(list, kVolumesArchive, &filter);
    return list;
  }
  void Run(const std::string& command, const std::string& told) {
    const std::string text = boost::replace_all_copy(told, "$", tree.Root());
    std::istringstream words(text);
    if (command == "drive") {
      bundle.drives.Add(text);
      storage.LoadStorage();
      host.ForgetTraffic();
    } else if (command == "configure") {
      if (Configure(text)) seen += "other drives\n";
    } else if (command == "report") {
      Report(text);
    } else if (command == "search") {
      filter.clear();
      for (int id = 0, wanted = 0; words >> id >> wanted;) filter[id] = wanted != 0;
    } else {
      FAIL() << "what is " << command;
    }
  }
  std::string Seen() {
    for (const std::uint32_t kind : {kVolumesLocal, kVolumesArchive, std::uint32_t{0}}) {
      std::vector<std::string> volumes{"left over"};
      storage.GetVolumes(volumes, kind, &filter);
      if (volumes.empty()) continue;
      seen += kind == kVolumesLocal ? "drives" : kind == kVolumesArchive ? "archives" : "none";
      for (const std::string& volume : volumes) seen += ' ' + volume;
      seen += '\n';
    }
    for (const auto& target : Targets()) {
      seen += "target";
      for (const auto& [key, value] : target->Properties()) seen += ' ' + key + '=' + value;
      seen += '\n';
    }
    for (const auto& line : host.Lines()) seen += line.text + '\n';
    for (const auto& event : host.Events()) {
      seen += std::to_string(event.eventClass) + ' ' + event.text + '\n';
    }
    host.ForgetTraffic();
    boost::replace_all(seen, tree.Root(), "$");
    return qv::kelvo::Slashed(std::exchange(seen, {}));
  }

  FakeHost host;
  const qv::kelvo::TempTree tree;
  qv::kelvo::TestBundle bundle;
  FakeCore core{bundle.clock};
  CFileSystem storage{core, bundle.platform};
  qv::kelvo::ArchiveFilter filter;
  std::string seen;
};

TEST_P(NetworkTargets, AreOfferedAsTold) {
  bundle.clock.SetNow(1'700'000'000'999);
  for (const testsupport::Step& step : GetParam().steps) {
    SCOPED_TRACE("network_targets.txt:" + std::to_string(step.line));
    Run(step.command, step.text);
    if (!step.expected.empty()) {
      EXPECT_EQ(Seen(), step.expected == "-\n" ? "" : step.expected);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Text, NetworkTargets,
                         ::testing::ValuesIn(testsupport::ReadConversations(KELVO_NETWORK_TARGETS)),
                         [](const auto& made) { return made.param.name; });

TEST_F(NetworkTargets, OnlyItsSearchesHoldATargetThatWasReplaced) {
  Configure("<Archive ID='2' Enabled='1' Type='3' Address='a' MountPoint='/two/'/>");
  Report("<Archive ID='2' Status='0'/>");
  const auto held = Targets();
  Configure("");
  EXPECT_TRUE(Targets().empty());
  ASSERT_EQ(held.size(), 1u);
  EXPECT_EQ(held[0]->Properties().at("FullyMountedPath"), "/two/");
  EXPECT_EQ(held[0].use_count(), 1);
}

TEST_F(NetworkTargets, BucketOnADriveThatALinkLeadsToIsRefused) {
  const std::string drive = tree.MakeDirectory("disks/a");
  boost::filesystem::create_directory_symlink(tree.Path("disks"), tree.Path("link"));
  if (!boost::filesystem::is_symlink(tree.Path("link"))) GTEST_SKIP() << "the system tells of none";
  Run("drive", drive);
  Report("<Archive ID='1' Status='0'/>");
  Configure(
      "<Archive ID='1' Enabled='1' Type='5' Address='b.s3.us-east-1.x' Username='u'"
      " Password='p' MountPoint='" +
      tree.Path("link/a/x") + "'/>");
  EXPECT_TRUE(Targets().empty());
}

}  // namespace
}  // namespace qvsvr::kelvo
