#include "storage/StorageMessages.h"

#include <gtest/gtest.h>

#include "tests/storage/ParsedXml.h"

namespace qvsvr::kelvo {
namespace {

class StorageMessages : public ::testing::Test {
 protected:
  bool Apply(const std::string& text) {
    const ParsedXml xml(text);
    return ApplyStorageElement({drives, retention, lapse}, xml.Root(), 1234567890123, reply);
  }

  DriveTable drives;
  RetentionRules retention;
  TimeLapseTable lapse;
  TiXmlElement reply{"Storage"};
};

TEST_F(StorageMessages, AppliesEachReadableSettingAndLeavesTheOthers) {
  Apply(R"(<Storage TimeLapse="1000" ContentAge="60" FSCleanupRemoves="0"
            PreserveExpirationAudioWithVideo="2"><Expiration Type="2" Days="9"/></Storage>)");
  Apply(R"(<Storage TimeLapse="-1" ContentAge="x" FSCleanupRemoves="" Expiration="0">
             <Expiration Type="1"/></Storage>)");
  EXPECT_EQ(lapse.timeLapse, 1000);
  EXPECT_EQ(lapse.timeLapseChanges, 1u);
  EXPECT_EQ(retention.contentAge, 60);
  EXPECT_FALSE(retention.fsCleanupRemoves);
  EXPECT_TRUE(retention.preserveExpirationAudioWithVideo);
  EXPECT_EQ(retention.expirationDays, -9);

  Apply(R"(<Storage TimeLapse="0" FSCleanupRemoves="7"/>)");
  EXPECT_EQ(lapse.timeLapseChanges, 2u);
  EXPECT_TRUE(retention.fsCleanupRemoves);
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
      {R"(Percent="-2147483648")", false, 100},
      {R"(Percent="35" System="1")", false, 65},
  };
  DriveRecord& record = drives.drives["/d/a/"];
  for (const auto& row : rows) {
    SCOPED_TRACE(row.attributes);
    EXPECT_TRUE(
        Apply(std::string(R"(<Storage><Drive Name="/d/a/" )") + row.attributes + "/></Storage>"));
    EXPECT_EQ(record.disabled, row.disabled);
    EXPECT_EQ(record.reservePercent, row.reserve);
    EXPECT_FALSE(record.system);
  }
  EXPECT_EQ(reply.FirstChild(), nullptr);
}

TEST_F(StorageMessages, AnswersDrivesThatAreNotThere) {
  EXPECT_FALSE(Apply(R"(<Storage><Drive Name="/gone/"/><Drive/><Drive Name="/off/" Enabled="0"/>
                        </Storage>)"));
  EXPECT_EQ(TextOf(reply),
            "<Storage>"
            R"(<Drive Name="/gone/" Alarm="1" Time="1234567890123" Message="Drive not found" />)"
            R"(<Drive Name="/off/" Alarm="0" Time="1234567890123" Message="Drive not found" />)"
            "</Storage>");
  EXPECT_EQ(drives.absentDrives, (std::map<std::string, bool>{{"/off/", false}}));
  EXPECT_TRUE(drives.drives.empty());
}

TEST_F(StorageMessages, TimeLapseSchedulesAreReplacedWholePerInput) {
  const auto id = qv::kelvo::MakeStreamID;
  Apply(R"(<Storage><Devices ID="1114112"><Device Number="3">
      <Video><Input Number="1"><Schedule>
          <Entry FirstHour="9" LastHour="17" TimeLapse="500"/>
          <Entry FirstHour="1" TimeLapse="9"/>
          <Entry FirstHour="0" LastHour="8" TimeLapse="2000"/></Schedule></Input>
        <Input Number="2"/><Input><Schedule/></Input></Video>
      <Context Number="4"><Video><Input Number="1"><Schedule>
          <Entry FirstHour="0" LastHour="167" TimeLapse="1"/></Schedule></Input></Video></Context>
      <Context><Video><Input Number="9"><Schedule/></Input></Video></Context>
    </Device><Device><Video><Input Number="8"><Schedule/></Input></Video></Device></Devices>
    <Devices><Device Number="3"><Video><Input Number="7"><Schedule/></Input></Video></Device>
    </Devices></Storage>)");
  const std::map<qv::kelvo::StreamID, Schedule> expected{
      {id(0, 0x00110000, 3, 1), {{9, 17, 500}, {0, 8, 2000}}},
      {id(4, 0x00110000, 3, 1), {{0, 167, 1}}},
  };
  EXPECT_EQ(lapse.timeLapseSchedules, expected);

  Apply(R"(<Storage><Devices ID="1114112"><Device Number="3"><Video><Input Number="1"><Schedule/>
        </Input></Video></Device></Devices></Storage>)");
  EXPECT_TRUE(lapse.timeLapseSchedules.at(id(0, 0x00110000, 3, 1)).empty());
  EXPECT_EQ(lapse.timeLapseSchedules.size(), 2u);
}

}  // namespace
}  // namespace qvsvr::kelvo
