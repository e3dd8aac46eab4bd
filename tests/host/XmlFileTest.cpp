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
// "die" before it or behind it.
class ShakyFiles : public DurableFiles {
 public:
  enum class Fate { Fine, Fails, DiesBefore, DiesAfter };

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

  Fate fate = Fate::Fine;
  int fatefulStep = 0;
  int steps = 0;
  std::size_t cutAt = std::string::npos;  // the process dies when so much was written
  const WriteResult* writeFailure = nullptr;

 private:
  template <typename Action>
  int Step(Action action) {
    if (++steps != fatefulStep || fate == Fate::Fine) return action();
    if (fate == Fate::DiesBefore) throw Died();
    if (fate == Fate::Fails) return 5;
    (void)action();
    throw Died();
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
  void Prepare() {
    for (const char* suffix : {"", ".bak", ".pending"}) fs::remove_all(path + suffix);
    EXPECT_TRUE(Settings("old").SaveFile(SystemPlatform().durableFiles, path));
  }

  qv::kelvo::TempTree tree;
  const std::string path = tree.Path("kelvo.xml");
};

TEST_F(XmlFile, SaveInterruptedAnywhereLeavesTheOldOrTheNew) {
  for (const auto fate :
       {ShakyFiles::Fate::Fails, ShakyFiles::Fate::DiesBefore, ShakyFiles::Fate::DiesAfter}) {
    for (int step = 1;; ++step) {
      SCOPED_TRACE(testing::Message() << "fate " << static_cast<int>(fate) << ", step " << step);
      Prepare();
      ShakyFiles files;
      files.fate = fate;
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
      if (fate == ShakyFiles::Fate::Fails && !saved) {
        EXPECT_EQ(now, "old");
        EXPECT_EQ(document.ErrorId(), 2);
      }
      EXPECT_FALSE(fs::exists(path + ".bak"));
      // The next save works as if nothing had been.
      EXPECT_TRUE(Settings("next").SaveFile(SystemPlatform().durableFiles, path));
      EXPECT_EQ(Restart(), "next");
      EXPECT_EQ(tree.Files(), std::vector<std::string>{"kelvo.xml"});
      if (files.steps < step) break;
    }
  }
}

TEST_F(XmlFile, SaveThatDiesAtAnyByteLeavesTheOld) {
  Prepare();
  for (std::size_t cut = 0; cut < 5000; cut += 97) {
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
  Prepare();
  for (const auto& row : kRows) {
    ShakyFiles files;
    files.writeFailure = &row.result;
    XmlDocument document = Settings("new");
    EXPECT_FALSE(document.SaveFile(files, path));
    EXPECT_TRUE(document.Error());
    EXPECT_EQ(document.ErrorId(), 2);
    EXPECT_TRUE(std::string(document.ErrorDesc()).starts_with(row.text)) << document.ErrorDesc();
    EXPECT_EQ(Restart(), "old");
  }
  ShakyFiles files;
  files.fate = ShakyFiles::Fate::Fails;
  files.fatefulStep = 4;  // write, remove the backup, rename, rename
  XmlDocument document = Settings("new");
  EXPECT_FALSE(document.SaveFile(files, path));
  EXPECT_STREQ(document.ErrorDesc(), "xml file swap failed");
  EXPECT_FALSE(fs::exists(path + ".pending"));
}

TEST_F(XmlFile, LoadFallsBackToTheBackupAndPutsItInPlace) {
  constexpr auto kOld = "<qDVR><a v='old'/><b v='old'/></qDVR>";
  constexpr auto kNew = "<qDVR><a v='new'/><b v='new'/></qDVR>";
  const struct {
    const char *file, *backup, *expected;  // null for none
  } kRows[] = {{nullptr, nullptr, ""}, {"", nullptr, ""},   {"<qDVR", nullptr, ""},
               {nullptr, kOld, "old"}, {"", kOld, "old"},   {"<qDVR><a", kOld, "old"},
               {kNew, kOld, "new"},    {kNew, "xx", "new"}, {"xx", "<x", ""}};
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
}

TEST_F(XmlFile, OddThingsInItsPlaceAreRefusedAtOnce) {
  XmlDocument document;
  fs::create_directory(path);
  EXPECT_FALSE(document.LoadFileWithBackup(SystemPlatform(), path));
  EXPECT_EQ(document.ErrorId(), 2);
  fs::remove(path);
  tree.Write("kelvo.xml", "<qDVR/>");
  fs::resize_file(path, 100u << 20);
  EXPECT_FALSE(document.LoadFile(SystemPlatform().mediaFiles, path));
  tree.Write("kelvo.xml", std::string(5000, '\0'));
  EXPECT_FALSE(document.LoadFile(SystemPlatform().mediaFiles, path));
  std::string deep;
  for (int i = 0; i < 101; ++i) deep += "<e>";
  tree.Write("kelvo.xml", deep);
  EXPECT_FALSE(document.LoadFile(SystemPlatform().mediaFiles, path));
  EXPECT_EQ(document.ErrorId(), 17);
  fs::create_directory(path + ".pending");
  EXPECT_FALSE(Settings("new").SaveFile(SystemPlatform().durableFiles, path));
  EXPECT_EQ(tree.Read("kelvo.xml"), deep);
}

}  // namespace
}  // namespace qvsvr::kelvo
