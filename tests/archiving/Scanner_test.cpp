#include <stdexcept>

#include "archiving/AwsAddress.h"
#include "archiving/CLocalDiskScanner.h"
#include "tests/archiving/BucketFixture.h"

namespace qvArchiving {
namespace {

using Constraint = Aws::S3::Model::BucketLocationConstraint;

class Scanner : public ScannerFixture {};

TEST(AwsAddress, ReadsRegionAndBucket) {
  struct Case {
    const char* address;
    AwsAddress expected;
  };
  const Case kCases[] = {
      {"b.s3.us-east-1.amazonaws.com", {"us-east-1", Constraint::us_east_1, "b"}},
      {"https://a.b.s3.eu-west-3.amazonaws.com", {"eu-west-3", Constraint::eu_west_3, "a.b"}},
      {"\\\\b.s3.cn-northwest-1.x\\y", {"cn-northwest-1", Constraint::cn_northwest_1, "b"}},
      {"https://\\\\b.s3.sa-east-1.x", {"sa-east-1", Constraint::sa_east_1, "//b"}},
      {"eu-west-1.s3.us-west-2.x", {"us-west-2", Constraint::us_west_2, "eu-west-1"}},
      {"my-us-east-1.s3.eu-west-1.x", {"us-east-1", Constraint::us_east_1, "my-us-east-1"}},
      {"b.s3-us-gov-west-1.x", {"us-gov-west-1", Constraint::us_gov_west_1, "b"}},
      {".s3.us-east-1.x", {"us-east-1", Constraint::us_east_1, ""}},
  };
  for (const Case& row : kCases) {
    const AwsAddress address = ParseAddress(row.address);
    EXPECT_EQ(address.region, row.expected.region) << row.address;
    EXPECT_EQ(address.constraint, row.expected.constraint) << row.address;
    EXPECT_EQ(address.bucket, row.expected.bucket) << row.address;
  }
}

TEST_F(Scanner, TypeDecidesWhatIsMade) {
  for (const char* type : {"1", "2", "3", "5", "5 and more"}) {
    const auto scanner = Open({{"Type", type}});
    EXPECT_EQ(std::dynamic_pointer_cast<CLocalDiskScanner>(scanner) != nullptr, type[0] != '5');
  }
  for (const char* type : {"0", "4", "6", "-1"}) {
    EXPECT_THROW((void)Open({{"Type", type}}), const char*) << type;
  }
  EXPECT_THROW((void)CreateScanner({}, {}, clock), const char*);
  EXPECT_THROW((void)Open({{"Type", "bucket"}}), std::invalid_argument);
  EXPECT_THROW((void)Open({{"Type", "99999999999"}}), std::out_of_range);
}

TEST_F(Scanner, RefusesPropertiesThatNameNoBucketOrUser) {
  struct Case {
    const char* property;
    const char* value;  // null: absent
    const char* reason;
    const char* line;
  };
  const Case kCases[] = {
      {"UserName", nullptr, "required property missing", "Required property 'UserName' missing"},
      {"FullyMountedPath", nullptr, "required property missing", "Required property missing"},
      {"FullName", "b.s3.x", "required valid s3 path missing", "Invalid S3 path = b.s3.x"},
      {"FullName", "us-east-1", "Invalid name property", "Invalid name property = us-east-1"},
      {"UserName", "", "Invalid user property", "Invalid empty user property"},
      {"Password", "", "Invalid password property", "Invalid empty password property"},
  };
  for (const Case& row : kCases) {
    ScannerProperties properties = Properties();
    properties.erase(row.property);
    if (row.value != nullptr) properties[row.property] = row.value;
    host.ForgetTraffic();
    try {
      (void)CreateScanner(properties, {}, clock);
      ADD_FAILURE() << row.line;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), row.reason);
    }
    EXPECT_EQ(host.CountLines(75, row.line), 1u) << row.line;
  }
}

TEST_F(Scanner, KnowsWhatLiesWithinItsMount) {
  struct Case {
    const char* mount;
    const char* path;
    bool within;
  };
  const Case kCases[] = {
      {"/mnt/a", "/mnt/a/2024", true},      {"/mnt/a/", "/mnt/a/2024/01/x.ps", true},
      {"/mnt/a", "/mnt/a", false},          {"/mnt/a", "/mnt/ab/2024", false},
      {"/mnt/a", "/other/mnt/a/b", false},  {"/mnt/a/b/c", "/mnt/a/x", false},
      {"\\mnt\\a", "\\mnt\\a\\2024", true},
  };
  for (const Case& row : kCases) {
    const auto scanner = Open({{"FullyMountedPath", row.mount}});
    EXPECT_EQ(scanner->IsWithinMount(row.path), row.within) << row.mount << ' ' << row.path;
  }
}

TEST_F(Scanner, ComparesTargetsByWhatBothSay) {
  const auto scanner = Open();
  const std::string name = Properties()["FullName"];
  EXPECT_TRUE(scanner->IsSameTarget(Properties()));
  EXPECT_TRUE(scanner->IsSameTarget({}));
  EXPECT_FALSE(scanner->IsSameTarget({{"FullName", "other"}}));
  for (const char* key : {"UserName", "Password"}) {
    EXPECT_FALSE(scanner->IsSameTarget({{"FullName", name}, {key, "other"}})) << key;
  }
  EXPECT_TRUE(scanner->IsSameTarget({{"UserName", access}, {"Region", "other"}}));
}

TEST(TransferStatusName, TakesAnUnknownStatusForAFailure) {
  EXPECT_EQ(TransferStatusName(static_cast<TransferStatus>(7)), "FAILED");
}

}  // namespace
}  // namespace qvArchiving
