#include "storage/DriveTable.h"

#include <gtest/gtest.h>

namespace qvsvr::kelvo {
namespace {

TEST(DriveTable, SystemDriveIsOffBesideOthersAndKeepsATenth) {
  struct Case {
    std::vector<std::string> names;
    std::string system;  // directory
    std::string name;    // of the drive looked at
    bool isSystem, disabled;
    int reserve;
  };
  const Case cases[] = {
      {{"/m/a/"}, "/m/a/os", "/m/a/", true, false, 10},
      {{"/m/a/", "/m/b/"}, "/m/a/os", "/m/a/", true, true, 10},
      {{"/m/a/", "/m/b/"}, "/m/a/os", "/m/b/", false, false, 0},
      {{"/m/a/", "/m/b/"}, "", "/m/a/", false, false, 0},
      // Anywhere in the text counts, not only at its start.
      {{"/os/", "/m/b/"}, "/m/os/lib", "/os/", true, true, 10},
  };
  for (const Case& row : cases) {
    DriveTable table;
    table.drives["/left over/"].disabled = true;
    table.Fill(row.names, row.system);
    SCOPED_TRACE(row.name + " with " + row.system);
    ASSERT_EQ(table.drives.size(), row.names.size());
    const DriveRecord& record = table.drives.at(row.name);
    EXPECT_EQ(record.system, row.isSystem);
    EXPECT_EQ(record.disabled, row.disabled);
    EXPECT_EQ(record.reservePercent, row.reserve);
    EXPECT_EQ(record.reportedAlarm, -1);
  }
}

TEST(DriveTable, CountsPathPartsBetweenSeparators) {
  EXPECT_EQ(CountPathParts(""), 0u);
  EXPECT_EQ(CountPathParts("/"), 0u);
  EXPECT_EQ(CountPathParts("/srv/drives/a/"), 3u);
  EXPECT_EQ(CountPathParts("srv//drives///a"), 3u);
}

}  // namespace
}  // namespace qvsvr::kelvo
