#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "archiving/IResult.h"
#include "archiving/IScanner.h"
#include "tests/support/Conversation.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvArchiving {

// A target over a local tree; unless told otherwise a bucket with the properties of a well-formed
// one.
class Target : public testing::Test {
 protected:
  [[nodiscard]] ScannerProperties Properties(const ScannerProperties& more = {}) const;
  [[nodiscard]] std::shared_ptr<IScanner> Open(const ScannerProperties& more = {},
                                               const ScannerCallback& callback = {});
  [[nodiscard]] std::string Path(const std::string& relative) const { return tree.Path(relative); }
  // Stores an object, leaving no local copy; and brings it down, leaving one.
  void Put(const std::string& relative, const std::string& content) {
    ASSERT_EQ(Do("put", {relative, content}), "yes");
  }
  std::string Get(const std::string& relative) { return Do("get", {relative}); }
  // Waits for the end of a transfer that must have started.
  static TransferStatus Finish(const std::shared_ptr<IResult>& result);

  using Words = std::vector<std::string>;
  // Says what the conversation says, and compares the answers with what it expects: "yes" and no
  // errors in the log where it tells of none.
  void Hold(const testsupport::Conversation& conversation);
  // The properties with those that are given as KEY=VALUE; "-" leaves one out.
  [[nodiscard]] ScannerProperties Given(const Words& words) const;
  // What is answered to one command.
  virtual std::string Do(const std::string& command, const Words& words);

  qvsvr::kelvo::FakeHost host;
  qv::kelvo::TempTree tree;
  qv::kelvo::TestBundle bundle;
  qv::kelvo::ManualClock& clock = bundle.clock;
  std::string bucket = "footage";
  std::string access = "KEY";
  std::string secret = "SECRET";
  std::shared_ptr<IScanner> scanner;
  std::string error;

 private:
  std::string Ask(const testsupport::Step& step);
  [[nodiscard]] std::string Told(bool well) const;
  [[nodiscard]] std::string At(const Words& words, std::size_t n) const;
  std::string Change(const std::string& command, const Words& words);
  std::string List(const std::string& directory, bool withTimes);
};

}  // namespace qvArchiving
