// A child process that saves without end dies by SIGKILL at random moments.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <random>

#include "host/Xml.h"
#include "tests/support/TempTree.h"

namespace qvsvr::kelvo {
namespace {

[[noreturn]] void SaveForEver(const std::string& path, int toParent) {
  for (unsigned i = 0;; ++i) {
    XmlDocument document;
    const std::string value = std::to_string(i);
    if (!document.ParseText("<qDVR><a v='" + value + "'/><c v='" + std::string(9000, 'x') +
                            "'/><b v='" + value + "'/></qDVR>") ||
        !document.SaveFile(qv::kelvo::SystemPlatform(), path) || write(toParent, ".", 1) != 1) {
      _exit(1);
    }
  }
}

TEST(XmlFileKilled, SettingsAreAlwaysWholeAfterAKill) {
  std::mt19937 random(std::random_device{}());
  const qv::kelvo::TempTree tree;
  const std::string path = tree.Path("kelvo.xml");
  const char* const wanted = std::getenv("KELVO_KILLS");
  const int kills = wanted == nullptr ? 40 : std::atoi(wanted);
  for (int round = 0; round < kills; ++round) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) SaveForEver(path, ends[1]);
    close(ends[1]);
    char byte;
    ASSERT_EQ(read(ends[0], &byte, 1), 1) << "the first save is whole";
    // Dies somewhere within the saves that follow.
    for (volatile auto i = random() % 2'000'000; i > 0;) i = i - 1;
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    close(ends[0]);

    XmlDocument document;
    ASSERT_EQ(document.LoadFileWithBackup(qv::kelvo::SystemPlatform(), path), XmlFileState::Good);
    const TiXmlElement& root = *document.RootElement();
    EXPECT_STREQ(ReadText(*root.FirstChildElement("a"), "v"),
                 ReadText(*root.FirstChildElement("b"), "v"));
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
