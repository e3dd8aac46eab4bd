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
    testsupport::RedirectRequests(command == "reply" ? store.Url() : words.at(0));
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

// But for "a//b", of which the SDK makes another key; no path of ours has it.
TEST_F(Bucket, RoundTripsOddNames) {
  for (const std::string name : {"a b", "a+b", "a&b=c", "(1)", "100%", "q?x#y", "'\"<>",
                                 "\xC3\xBC\xE2\x82\xAC", "~!@$^*;:,[]{}|`", "%2F", "."}) {
    const std::string path = "odd dir+/" + name + ".ps";
    Put(path, name);
    EXPECT_EQ(Do("size", {path}), std::to_string(name.size())) << name;
    EXPECT_EQ(Get(path), name);
    EXPECT_EQ(Do("rename", {path, path + "2"}), "yes") << name;
    EXPECT_EQ(Do("kind", {path}), "nothing") << name;
    EXPECT_EQ(Do("kind", {path + "2"}), "file") << name;
  }
  EXPECT_EQ(Do("purge", {"odd dir+"}), "yes");
  EXPECT_EQ(Do("kind", {"odd dir+"}), "nothing");
}

}  // namespace
}  // namespace qvArchiving
