// What "kelvo.xml" in the current directory keeps, and what the host hears of it.
#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>

#include "tests/storage/RecordingForest.h"

namespace qvsvr::kelvo {
namespace {

class SettingsFile : public RecordingForest {
 protected:
  SettingsFile() { AddDrives(1000); }
  void Restart() {
    host.ForgetTraffic();
    Open();
  }
};

// One call fails, or the process dies there, at a start, at a change of the settings and at new
// bookmarks: what is in force and what is stored is the old or the new, never less.
TEST_F(SettingsFile, NoFaultAndNoDeathCostsSettingsOrBookmarks) {
  durable.Join(files, "kelvo.xml");
  const std::string covered[] = {Plant("a/", kNow - kDay), Plant("a/", kNow - 2 * kDay)};
  const auto cases = [](int age) {
    return "<Case ID='c'>" + Bookmark("b", kNow - (age + 1) * kDay, kNow - (age + 1) * kDay + 9) +
           "</Case>";
  };
  const auto covers = [&](int age) {
    for (const std::string& path : covered) WriteFile(path);
    return !storage->RemoveFile(covered[age], false);
  };
  constexpr int kErrors[] = {EIO, ENOSPC, EMFILE, EACCES};
  const struct {
    const char* what;
    std::function<void()> act;
    int newLapse, newCases;
  } actions[] = {
      {"start", [&] { Restart(); }, 5, 0},
      {"settings",
       [&] {
         Apply("<Storage ID='327680' TimeLapse='7'/>");
         storage->SaveStorage();
       },
       7, 0},
      {"bookmarks", [&] { ApplyCases(cases(1)); }, 5, 1},
  };
  for (int kind = 0; kind < 6; ++kind) {
    const auto& action = actions[kind / 2];
    const bool dies = kind % 2 != 0;
    for (int step = 1, reached = 1; reached >= step; ++step) {
      SCOPED_TRACE(testing::Message()
                   << action.what << (dies ? " dies" : " fails") << " at step " << step);
      durable.Arm(0, false);
      std::ofstream("kelvo.xml") << "<qDVR><Storage ID='327680' TimeLapse='5'/><Cases ID='393216'>"
                                 << cases(0) << "</Cases></qDVR>";
      if (kind >= 2) Restart();
      durable.error = kErrors[step % 4];
      durable.Arm(step, dies);
      try {
        action.act();
        storage->ReportStatus(true);  // the next minute
        ASSERT_EQ(storage->Lapse().timeLapse, action.newLapse);
        ASSERT_TRUE(covers(action.newCases));
      } catch (const qv::kelvo::Died&) {
      }
      reached = durable.steps;
      const bool died = dies && reached >= step;
      durable.Arm(0, false);
      files.ClearFaults();
      Restart();
      ASSERT_TRUE(storage->Lapse().timeLapse == action.newLapse ||
                  (died && storage->Lapse().timeLapse == 5));
      ASSERT_TRUE(covers(action.newCases) || (died && covers(0)));
      ASSERT_FALSE(covers(0) && covers(1));
      for (const char* suffix : {".bak", ".pending", ".damaged1"}) {
        ASSERT_FALSE(Exists(std::string("kelvo.xml") + suffix)) << suffix;
      }
    }
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
