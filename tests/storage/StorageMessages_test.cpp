#include "storage/StorageMessages.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/storage/ParsedXml.h"

namespace qvsvr::kelvo {
namespace {

class StorageMessages : public ::testing::Test {
 protected:
  bool Apply(const std::string& text) {
    const ParsedXml xml("<Storage " + text + "</Storage>");
    return ApplyStorageElement({drives, retention, lapse}, xml.Root(), 1234567890123, reply);
  }

  static constexpr auto kMin = std::numeric_limits<std::int32_t>::min();
  static constexpr auto kMax = std::numeric_limits<std::int32_t>::max();
  DriveTable drives;
  RetentionRules retention;
  TimeLapseTable lapse;
  TiXmlElement reply{"Storage"};
};

TEST_F(StorageMessages, DaysOfARuleKeepAnOpposite) {
  const struct {
    int type;
    std::int32_t days, expected;
  } steps[] = {{3, 10, 0},      {1, 10, 10},      {-1, 20, 10}, {2, 10, -10},
               {2, kMin, kMax}, {2, kMax, -kMax}, {0, 77, 0},   {1, kMin, -kMax}};
  for (const auto& [type, days, expected] : steps) {
    Apply("><Expiration Type='" + std::to_string(type) + "' Days='" + std::to_string(days) + "'/>");
    EXPECT_EQ(retention.expirationDays, expected) << type << " " << days;
  }
}

TEST_F(StorageMessages, DriveValuesStayWithinTheirRange) {
  const struct {
    const char* attributes;
    bool disabled;
    int reserve;
  } rows[] = {
      {R"(Enabled="0" Percent="100")", true, 0},
      {R"(Percent="0")", true, 100},
      {R"(Enabled="5")", false, 100},
      {R"(Percent="900" Enabled="no")", false, 0},
      {R"(Percent="-2147483648" System="1")", false, 100},
  };
  const DriveRecord& record = drives.drives["/d/a/"];
  for (const auto& row : rows) {
    SCOPED_TRACE(row.attributes);
    EXPECT_TRUE(Apply(std::string(R"(><Drive Name="/d/a/" )") + row.attributes + "/>"));
    EXPECT_EQ(record.disabled, row.disabled);
    EXPECT_EQ(record.reservePercent, row.reserve);
    EXPECT_FALSE(record.system);
  }
}

TEST_F(StorageMessages, AnswerDrivesThatAreNotThere) {
  EXPECT_FALSE(Apply(R"(><Drive Name="/gone/"/><Drive/><Drive Name="/off/" Enabled="0"/>)"));
  EXPECT_EQ(TextOf(reply),
            "<Storage>"
            R"(<Drive Name="/gone/" Alarm="1" Time="1234567890123" Message="Drive not found" />)"
            R"(<Drive Name="/off/" Alarm="0" Time="1234567890123" Message="Drive not found" />)"
            "</Storage>");
}

TEST_F(StorageMessages, ReplaceTimeLapseSchedulesWholePerInput) {
  const auto apply = [this](const std::string& schedule, const std::string& other = "") {
    Apply("><Devices ID='1114112'><Device Number='3'><Video><Input Number='1'>" + schedule +
          "</Input><Input Number='2'/><Input>" + schedule + "</Input></Video>" + other +
          "</Device><Device><Video><Input Number='8'>" + schedule +
          "</Input></Video></Device></Devices>");
  };
  const std::string two = R"(<Schedule><Entry FirstHour="9" LastHour="17" TimeLapse="500"/>
      <Entry FirstHour="1" TimeLapse="9"/><Entry FirstHour="0" LastHour="8" TimeLapse="2"/>
      </Schedule>)";
  apply(two, "<Context Number='4'><Video><Input Number='1'>" + two +
                 "</Input></Video></Context><Context><Video><Input Number='9'>" + two +
                 "</Input></Video></Context>");
  const auto id = qv::kelvo::MakeStreamID;
  std::map<qv::kelvo::StreamID, Schedule> expected{
      {id(0, 0x00110000, 3, 1), {{9, 17, 500}, {0, 8, 2}}},
      {id(4, 0x00110000, 3, 1), {{9, 17, 500}, {0, 8, 2}}}};
  EXPECT_EQ(lapse.timeLapseSchedules, expected);
  apply("<Schedule/>");
  expected.begin()->second.clear();
  EXPECT_EQ(lapse.timeLapseSchedules, expected);
}

TEST_F(StorageMessages, ForgettingAProviderLeavesTheRulesOfOthers) {
  const auto id = qv::kelvo::MakeStreamID;
  retention.SetCameraExpiration(id(0, 0x00110000, 1, 2), 1, 30);
  retention.SetCameraExpiration(id(15, 0x00110000, 255, 0), 2, 7);
  EXPECT_EQ(retention.cameraExpiration.at(id(15, 0x00110000, 255, 0)), -7);
  retention.SetCameraExpiration(id(0, 0x00120000, 1, 2), 2, kMin);
  retention.SetCameraExpiration(id(0, 0x00120000, 1, 3), 0, kMin);
  retention.ForgetDevice(0xF0110000);  // bits outside the provider don't count
  const std::map<qv::kelvo::StreamID, std::int32_t> left{{id(0, 0x00120000, 1, 2), kMax},
                                                         {id(0, 0x00120000, 1, 3), -kMax}};
  EXPECT_EQ(retention.cameraExpiration, left);
}

}  // namespace
}  // namespace qvsvr::kelvo
