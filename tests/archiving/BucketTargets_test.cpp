#include "tests/archiving/BucketFixture.h"
#include "tests/store/ScriptedStore.h"

namespace qvArchiving {
namespace {

using testsupport::Conversation;
using testsupport::ScriptedStore;

class Targets : public Bucket, public testing::WithParamInterface<Conversation> {
 protected:
  std::string Do(const std::string& command, const Words& words) override {
    if (command == "requests") return std::to_string(store.TakeRequests().size());
    if (command == "reply") {
      store.Follow([words](const auto&) {
        return ScriptedStore::Turn{.raw =
                                       testsupport::HttpReply(testsupport::Listing(words.at(0)))};
      });
    }
    if (command != "reply" && command != "endpoint") return Target::Do(command, words);
    RedirectRequests(command == "reply" ? store.Url() : words.at(0));
    scanner = Open();
    return "yes";
  }
  ScriptedStore store;
};

TEST_P(Targets, AnswerAsTold) {
  Hold(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Bucket, Targets,
                         testing::ValuesIn(testsupport::ReadConversations(KELVO_TARGETS
                                                                          "buckets.txt")),
                         [](const auto& made) { return made.param.name; });

TEST_F(Bucket, RoundTripsOddNames) {
  for (const std::string name : {"a b", "a+b", "a&b=c", "(1)", "100%", "q?x#y", "'\"<>",
                                 "\xC3\xBC\xE2\x82\xAC", "a//b", "~!@$^*;:,[]{}|`", "%2F", "."}) {
    const std::string path = "odd dir+/" + name + ".ps";
    Put(path, name);
    std::uint64_t size = 0;
    EXPECT_TRUE(scanner->GetFileSize(Path(path), size, error)) << name << ' ' << error;
    EXPECT_EQ(size, name.size()) << name;
    EXPECT_EQ(Get(path), name);
    EXPECT_TRUE(scanner->RenameFile(Path(path), Path(path + "2"), error)) << name << ' ' << error;
    EXPECT_FALSE(scanner->TestFile(Path(path))) << name;
    EXPECT_TRUE(scanner->TestFile(Path(path + "2"))) << name;
  }
  EXPECT_TRUE(scanner->DeleteDirectory(Path("odd dir+"), error, true)) << error;
  EXPECT_FALSE(scanner->TestDirectory(Path("odd dir+")));
}

}  // namespace
}  // namespace qvArchiving
