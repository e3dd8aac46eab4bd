#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "host/Xml.h"
#include "tests/support/ManualClock.h"
#include "tests/support/ShakyFiles.h"
#include "tests/support/TempTree.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::Died;
using qv::kelvo::DurableFiles;
using qv::kelvo::FileCall;
using qv::kelvo::ShakyFiles;
using qv::kelvo::SystemPlatform;
namespace fs = boost::filesystem;

class XmlFile : public ::testing::Test {
 protected:
  static XmlDocument Settings(const std::string& value) {
    XmlDocument document;
    // Longer than a page, so that a part of it isn't a whole.
    EXPECT_TRUE(document.ParseText("<qDVR><a v='" + value + "'/><c v='" + std::string(5000, 'x') +
                                   "'/><b v='" + value + "'/></qDVR>"));
    return document;
  }
  // What is in force after a start: "old", "new", "mixed" or "" for nothing.
  std::string Restart() {
    XmlDocument document;
    if (document.LoadFileWithBackup(SystemPlatform(), path) != XmlFileState::Good) return "";
    const TiXmlElement& root = *document.RootElement();
    const std::string a = ReadText(*root.FirstChildElement("a"), "v");
    return a == ReadText(*root.FirstChildElement("b"), "v") ? a : "mixed";
  }
  void SaveOld() { EXPECT_TRUE(Settings("old").SaveFile(SystemPlatform(), path)); }

  static qv::kelvo::Platform With(DurableFiles& files,
                                  qv::kelvo::Clock& clock = SystemPlatform().clock,
                                  qv::kelvo::MediaFiles& media = SystemPlatform().mediaFiles) {
    const qv::kelvo::Platform& real = SystemPlatform();
    return {clock, real.drives, real.directories, media, files, real.diskSync};
  }

  qv::kelvo::TempTree tree;
  const std::string path = tree.Path("kelvo.xml");
};

TEST_F(XmlFile, SaveThatIsCutShortLeavesTheOld) {
  SaveOld();
  for (std::size_t cut = 0; cut < 5000; cut += 17) {
    ShakyFiles files;
    files.cutAt = cut;
    EXPECT_THROW((void)Settings("new").SaveFile(With(files), path), Died);
    ASSERT_EQ(Restart(), "old") << cut;
  }
  // Nor does a death cost the backup while that is all there is, as an earlier death leaves it.
  for (int step = 1; step <= 4; ++step) {
    SaveOld();
    fs::rename(path, path + ".bak");
    ShakyFiles files;
    files.Arm(step, true);
    EXPECT_THROW((void)Settings("new").SaveFile(With(files), path), Died);
    EXPECT_EQ(Restart(), step < 4 ? "old" : "new");
  }
}

// Backups, editors and scanners hold what they look at for a moment, and what somebody holds keeps
// its name after it was removed.
TEST_F(XmlFile, SaveWaitsForOtherProgramsAndGoesRoundABackupThatIsHeld) {
  qv::kelvo::ManualClock clock;
  for (int step = 1; step <= 4; ++step) {
    for (const int failures : {1, 20, 1000}) {
      SaveOld();
      ShakyFiles files;
      files.Arm(step, false);
      files.failures = failures;
      files.error = qv::kelvo::kBusyError;
      qv::kelvo::Platform busy = With(files, clock);
      const bool saved = Settings("new").SaveFile(busy, path);
      EXPECT_TRUE(saved || failures == 1000) << step;
      EXPECT_EQ(Restart(), saved ? "new" : "old") << step << " " << failures;
    }
  }
  tree.Write("kelvo.xml.bak", "");
  ShakyFiles files;
  files.held = path + ".bak";
  files.error = qv::kelvo::kBusyError;
  for (const char* text : {"new", "old"}) {
    EXPECT_TRUE(Settings(text).SaveFile(With(files, clock), path));
    EXPECT_EQ(tree.Read("kelvo.xml.bak"), "");
  }
  EXPECT_EQ(Restart(), "old");
}

// What was written is read back before it takes the place of what is there.
TEST_F(XmlFile, SaveThatAStartCouldNotReadIsRefused) {
  SaveOld();
  XmlDocument document = Settings("new");
  TiXmlElement* last = document.RootElement();
  for (int i = 0; i < 100; ++i) last = last->LinkEndChild(new TiXmlElement("a"))->ToElement();
  EXPECT_FALSE(document.SaveFile(SystemPlatform(), path));
  EXPECT_TRUE(std::string_view(document.ErrorDesc()).starts_with("read back: "));
  qv::kelvo::FaultyFiles media(SystemPlatform().mediaFiles);
  media.Set({FileCall::ReadAt, 1, qv::kelvo::FileFault::kForGood, 0, 100, ".pending"});
  document = Settings("new");
  const qv::kelvo::Platform& real = SystemPlatform();
  EXPECT_FALSE(document.SaveFile(With(real.durableFiles, real.clock, media), path));
  EXPECT_EQ(Restart(), "old");
  EXPECT_EQ(tree.Files(), std::vector<std::string>{"kelvo.xml"});
}

// It makes a larger file: &quot; for a quote, <i /> for <i/>.
TEST_F(XmlFile, LargestMessageMakesAFileThatAStartReads) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr int kItems = 100'000;
#else
  constexpr int kItems = 999'990;
#endif
  std::string text = "<qDVR><a b='" + std::string(1'000'000, '"') + "'/><!--";
  text += std::string((std::size_t{64} << 20) - 4 * kItems - text.size() - 10, 'x') + "-->";
  for (int i = 0; i < kItems; ++i) text += "<i/>";
  XmlDocument document;
  ASSERT_TRUE(document.ParseText(text + "</qDVR>")) << document.ErrorDesc();
  EXPECT_TRUE(document.SaveFile(SystemPlatform(), path)) << document.ErrorDesc();
  EXPECT_GT(fs::file_size(path), text.size());
  document.Clear();
  EXPECT_EQ(document.LoadFile(SystemPlatform(), path), XmlFileState::Good);
  fs::resize_file(path, std::uint64_t{2} << 30);
  EXPECT_EQ(document.LoadFile(SystemPlatform(), path), XmlFileState::Damaged);
}

}  // namespace
}  // namespace qvsvr::kelvo
