#include "storage/StatusReport.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <cerrno>

#include "tests/storage/ParsedXml.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"
#include "tree/LocalTime.h"

namespace qvsvr::kelvo {
namespace {

class StatusOfDrives : public ::testing::Test {
 protected:
  StatusOfDrives() {
    tests.space = [this](const std::string&, std::uint32_t& total, std::uint32_t& free) {
      total = 100;
      free = 7;
      return spaceWorks;
    };
    tests.readWrite = [this](const std::string&) { return driveWorks; };
    table.drives["a/"];
  }
  std::string Full() {
    report.MeasureDrives(table, tests);
    return TextOf(report.Build(table, notPossible, 1000, &measures));
  }
  std::string Short() { return TextOf(report.Build(table, notPossible, 1000, nullptr)); }
  // Alarm and message of the drive, "" when they aren't told.
  std::string Told(bool full = true) {
    const ParsedXml xml(full ? Full() : Short());
    const TiXmlElement& drive = *xml.Root().FirstChildElement("Drive");
    return std::string(ReadText(drive, "Alarm")) + ReadText(drive, "Message");
  }

  DriveTable table;
  StatusReport report;
  StatusReport::DriveTests tests;
  StatusReport::Measures measures;
  bool spaceWorks = true;
  bool driveWorks = true;
  bool notPossible = false;
};

TEST_F(StatusOfDrives, FullAndShortReportsHaveTheirAttributes) {
  measures.oldest = 123;
  measures.recordingMbps = 2.5;
  table.absentDrives = {{"a/", true}, {"z/", true}};
  EXPECT_EQ(Full(), R"(<Storage Time="123" RecordingMbps="2.5" ContentAge="0" AlarmTime="1000">)"
                    R"(<Drive Name="a/" Time="1000" SizeGB="100" FreeGB="7" Alarm="0" )"
                    R"(Message="Healthy" /></Storage>)");
  EXPECT_EQ(Short(), R"(<Storage><Drive Name="a/" Time="1000" Alarm="0" Message="Healthy" />)"
                     R"(</Storage>)");
  EXPECT_EQ(table.absentDrives.size(), 1u);
  spaceWorks = false;
  EXPECT_NE(Full().find(R"(SizeGB="0" FreeGB="0")"), std::string::npos);
}

TEST_F(StatusOfDrives, TellsEachAlarmOnceAndHealthAlways) {
  struct Step {
    bool space, works, impossible, full;
    const char* told;
    std::uint32_t bits;
  };
  const Step steps[] = {
      {true, true, false, true, "0Healthy", 0},
      {false, true, false, true, "1Get disk space error", 4},
      {false, true, false, true, "", 4},
      {false, false, false, true, "1Get disk space error", 12},
      {true, false, false, false, "", 12},
      {true, false, false, true, "1Write error", 8},
      {true, false, true, false, "1Recording Not Possible", 8},
      {true, false, true, true, "", 8},
      {true, false, false, false, "1Write error", 8},
      {true, true, false, true, "0Healthy", 0},
      {true, false, false, true, "1Write error", 8},
      {true, false, false, true, "0Disabled", 0},  // measured, but not tested
      {false, true, true, true, "0Disabled", 4},
      {true, true, false, true, "0Healthy", 0},
      {true, true, false, false, "0Healthy", 0},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(&step - steps);
    table.drives["a/"].disabled = step.told == std::string("0Disabled");
    spaceWorks = step.space;
    driveWorks = step.works;
    notPossible = step.impossible;
    EXPECT_EQ(Told(step.full), step.told);
    EXPECT_EQ(table.drives["a/"].alarmBits, step.bits);
  }
}

TEST_F(StatusOfDrives, ContentAgeIsAnAlarmWhileRoomIsMadeAndTooLittleIsLeft) {
  measures.wantedAge = 500;
  struct Step {
    std::int64_t oldest, lastRoom;
    std::uint64_t count;
    const char* told;
  };
  const Step steps[] = {
      {501, qv::kelvo::kNoTime, 0, "0"},  // the first report tells it in any case
      {501, qv::kelvo::kNoTime, 0, ""},   // nothing was deleted
      {500, 900, 1, ""},                  // reaches back far enough
      {501, 900, 1, "1"},
      {501, 901, 2, ""},
      {501, 1000 - 3600, 2, "0"},  // nothing was deleted within the last hour
      {-1, 900, 1, ""},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(&step - steps);
    measures.oldest = step.oldest;
    measures.lastRoomMakingTime = step.lastRoom;
    measures.roomMakingCount = step.count;
    const ParsedXml xml(Full());
    EXPECT_STREQ(ReadText(xml.Root(), "ContentAge"), step.told);
    EXPECT_EQ(report.ContentAgeSettled(), *step.told == '0');
  }
}

TEST(DriveTest, FailsWithItsReasonAndPassesWithANewPatternEachTime) {
  FakeHost host;
  const qv::kelvo::TempTree tree;
  qv::kelvo::TestBundle system;
  qv::kelvo::FaultyFiles& files = system.files;
  ReadWriteTest test(system.platform);
  const std::string drive = tree.MakeDirectory("a");
  EXPECT_TRUE(test.Run(drive));
  EXPECT_EQ(tree.Read("a/kelvo/test.bin"), std::string(4096, '\0'));
  EXPECT_TRUE(test.Run(drive));
  EXPECT_EQ(tree.Read("a/kelvo/test.bin"), std::string(4096, '\1'));

  using qv::kelvo::FileCall;
  const auto fails = [&](const std::string& line) {
    host.ForgetTraffic();
    EXPECT_FALSE(test.Run(drive));
    EXPECT_EQ(host.CountLines(75, line), 1u) << line;
    files.ClearFaults();
  };
  const std::pair<qv::kelvo::FileFault, const char*> faults[] = {
      {{FileCall::Open, 1, 1, ENOSPC, 0, "test.bin"}, "RWT - write "},
      {{FileCall::WriteAt, 1, 1, EIO, 0, "test.bin"}, "RWT - write "},
      {{FileCall::WriteAt, 1, 1, 0, 4000, "test.bin"}, "RWT - write "},
      {{FileCall::Close, 1, 1, EIO, 0, "test.bin"}, "RWT - write "},
      {{FileCall::Open, 2, 1, ENOSPC, 0, "test.bin"}, "RWT - read "},
      {{FileCall::ReadAt, 1, 1, EIO, 0, "test.bin"}, "RWT - read "},
  };
  for (const auto& [fault, line] : faults) {
    files.Set(fault);
    fails(line);
  }
  files.before = [&](FileCall call, const std::string&) {
    if (call == FileCall::ReadAt) tree.Write("a/kelvo/test.bin", std::string(4096, 'x'));
  };
  fails("RWT - compare ");
  files.before = nullptr;
  tree.Write("a/kelvo/foreign", "");
  fails("RWT - remove ");
  // Somebody's for a moment only: what is held, or removed and held, is waited for.
  int pauses = 0;
  system.clock.onPause = [&] {
    if (++pauses == 10) boost::filesystem::remove(tree.Path("a/kelvo/foreign"));
  };
  EXPECT_TRUE(test.Run(drive));
  EXPECT_EQ(pauses, 10);
  for (const std::size_t first : {1, 2}) {
    files.Set({FileCall::Open, first, 20, qv::kelvo::kBusyError, 0, "test.bin"});
    EXPECT_TRUE(test.Run(drive));
  }
  boost::filesystem::remove_all(drive);
  fails("RWT - create ");
  EXPECT_FALSE(boost::filesystem::exists(drive)) << "a drive that is gone isn't made up";
}

}  // namespace
}  // namespace qvsvr::kelvo
