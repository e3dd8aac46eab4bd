#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "host/Xml.h"
#include "tests/support/TempTree.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::DurableFiles;
using qv::kelvo::SystemPlatform;
namespace fs = boost::filesystem;

struct Died {};

// Durable files over the real ones. Each step, in order of the calls, may fail, or the process may
// "die" before it or, when it writes, within it.
class ShakyFiles : public DurableFiles {
 public:
  WriteResult WriteNew(const std::string& path, std::string_view content) override {
    if (writeFailure) return *writeFailure;
    if (cutAt < content.size()) {
      (void)real.WriteNew(path, content.substr(0, cutAt));
      throw Died();
    }
    WriteResult result;
    const int error = Step([&] {
      result = real.WriteNew(path, content);
      return result.error;
    });
    if (error != 0 && result.error == 0) result = {WriteStep::Create, error, 0};
    return result;
  }
  int Rename(const std::string& from, const std::string& to) override {
    return Step([&] { return real.Rename(from, to); });
  }
  int Remove(const std::string& path) override {
    return Step([&] { return real.Remove(path); });
  }
  bool IsMissing(int error) const override { return real.IsMissing(error); }

  int fatefulStep = 0;  // from 1 on
  bool dies = false;    // fails otherwise
  int steps = 0;
  std::size_t cutAt = std::string::npos;  // the process dies when so much was written
  const WriteResult* writeFailure = nullptr;

 private:
  template <typename Action>
  int Step(Action action) {
    if (++steps != fatefulStep) return action();
    if (dies) throw Died();
    return 5;
  }

  DurableFiles& real = SystemPlatform().durableFiles;
};

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
    if (!document.LoadFileWithBackup(SystemPlatform(), path)) return "";
    const TiXmlElement& root = *document.RootElement();
    const std::string a = ReadText(*root.FirstChildElement("a"), "v");
    return a == ReadText(*root.FirstChildElement("b"), "v") ? a : "mixed";
  }
  void SaveOld() { EXPECT_TRUE(Settings("old").SaveFile(SystemPlatform().durableFiles, path)); }

  qv::kelvo::TempTree tree;
  const std::string path = tree.Path("kelvo.xml");
};

TEST_F(XmlFile, SaveInterruptedAnywhereLeavesTheOldOrTheNew) {
  for (const bool dies : {false, true}) {
    for (int step = 1;; ++step) {
      SCOPED_TRACE(testing::Message() << (dies ? "dies" : "fails") << " at step " << step);
      SaveOld();
      ShakyFiles files;
      files.dies = dies;
      files.fatefulStep = step;
      bool saved = false;
      XmlDocument document = Settings("new");
      try {
        saved = document.SaveFile(files, path);
      } catch (const Died&) {
      }
      const std::string now = Restart();
      EXPECT_TRUE(now == "old" || now == "new") << now;
      EXPECT_TRUE(!saved || now == "new");
      if (!dies && !saved) {
        EXPECT_EQ(now, "old");
        EXPECT_EQ(document.ErrorId(), 2);
        EXPECT_FALSE(fs::exists(path + ".pending"));
      }
      EXPECT_FALSE(fs::exists(path + ".bak"));
      // The next save works as if nothing had been.
      EXPECT_TRUE(Settings("next").SaveFile(SystemPlatform().durableFiles, path));
      EXPECT_EQ(Restart(), "next");
      EXPECT_EQ(tree.Files(), std::vector<std::string>{"kelvo.xml"});
      if (files.steps < step) break;
    }
  }
  SaveOld();
  for (std::size_t cut = 0; cut < 5000; cut += 17) {
    ShakyFiles files;
    files.cutAt = cut;
    EXPECT_THROW((void)Settings("new").SaveFile(files, path), Died);
    ASSERT_EQ(Restart(), "old") << cut;
  }
}

TEST_F(XmlFile, FailuresHaveTheirOwnWords) {
  using Step = DurableFiles::WriteStep;
  const struct {
    DurableFiles::WriteResult result;
    const char* text;
  } kRows[] = {
      {{Step::Create, 13, 0}, "create error 13"},
      {{Step::Write, 28, 0}, "write error 28"},
      {{Step::Close, 5, 0}, "close error 5"},
      {{Step::Done, 0, 3}, "only wrote 3 of "},
  };
  SaveOld();
  XmlDocument document = Settings("new");
  for (const auto& row : kRows) {
    ShakyFiles files;
    files.writeFailure = &row.result;
    EXPECT_FALSE(document.SaveFile(files, path));
    EXPECT_TRUE(std::string(document.ErrorDesc()).starts_with(row.text)) << document.ErrorDesc();
    EXPECT_EQ(Restart(), "old");
  }
  ShakyFiles files;
  files.fatefulStep = 4;  // write, remove the backup, rename, rename
  EXPECT_FALSE(document.SaveFile(files, path));
  EXPECT_STREQ(document.ErrorDesc(), "xml file swap failed");
}

TEST_F(XmlFile, LoadFallsBackToTheBackupAndPutsItInPlace) {
  constexpr auto kOld = "<qDVR><a v='old'/><b v='old'/></qDVR>";
  constexpr auto kNew = "<qDVR><a v='new'/><b v='new'/></qDVR>";
  const struct {
    const char *file, *backup, *expected;  // null for none
  } kRows[] = {{nullptr, nullptr, ""},    {"", nullptr, ""},   {nullptr, kOld, "old"},
               {"<qDVR><a", kOld, "old"}, {kNew, kOld, "new"}, {kNew, "xx", "new"},
               {"xx", "<x", ""}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.file == nullptr ? "no file" : row.file);
    for (const char* suffix : {"", ".bak"}) fs::remove(path + suffix);
    if (row.file != nullptr) tree.Write("kelvo.xml", row.file);
    if (row.backup != nullptr) tree.Write("kelvo.xml.bak", row.backup);
    EXPECT_EQ(Restart(), row.expected);
    if (*row.expected == '\0') continue;
    EXPECT_EQ(tree.Files(), std::vector<std::string>{"kelvo.xml"});
    EXPECT_EQ(Restart(), row.expected);
  }
  // What isn't a file, or is too large a one, isn't opened.
  XmlDocument document;
  tree.Write("kelvo.xml", kNew);
  fs::resize_file(path, 100u << 20);
  EXPECT_FALSE(document.LoadFile(SystemPlatform().mediaFiles, path));
  EXPECT_EQ(document.ErrorId(), 2);
  fs::remove(path);
  fs::create_directory(path);
  EXPECT_FALSE(document.LoadFile(SystemPlatform().mediaFiles, path));
  EXPECT_EQ(document.ErrorId(), 2);
}

}  // namespace
}  // namespace qvsvr::kelvo
