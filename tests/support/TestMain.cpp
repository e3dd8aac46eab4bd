#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "tests/support/TempTree.h"

namespace {

// Settings lie in the current directory: each test gets an empty one of its own.
class OwnDirectory : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override {
    tree = std::make_unique<qv::kelvo::TempTree>();
    boost::filesystem::current_path(tree->Root());
  }
  void OnTestEnd(const testing::TestInfo&) override {
    boost::filesystem::current_path(before);
    tree.reset();
  }

  const boost::filesystem::path before = boost::filesystem::current_path();
  std::unique_ptr<qv::kelvo::TempTree> tree;
};

}  // namespace

// Names in the media tree follow local time: every test program runs in a zone with summer time.
int main(int count, char** arguments) {
#ifdef _WIN32
  // Here the zone is the system's; the C runtime misreads zone names in TZ.
  _putenv("TZ=");
  _tzset();
#else
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
#endif
  testing::InitGoogleTest(&count, arguments);
  testing::UnitTest::GetInstance()->listeners().Append(new OwnDirectory);
  return RUN_ALL_TESTS();
}
