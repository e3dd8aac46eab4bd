#include <stdexcept>

#include "archiving/AwsAddress.h"
#include "archiving/CLocalDiskScanner.h"
#include "tests/archiving/BucketFixture.h"

namespace qvArchiving {
namespace {

using Constraint = Aws::S3::Model::BucketLocationConstraint;

class Scanner : public ScannerFixture {};

TEST(AwsAddress, ReadsRegionAndBucket) {
  const std::pair<const char*, AwsAddress> cases[] = {
      {"b.s3.us-east-1.amazonaws.com", {"us-east-1", Constraint::us_east_1, "b"}},
      {"https://a.b.s3.eu-west-3.amazonaws.com", {"eu-west-3", Constraint::eu_west_3, "a.b"}},
      {"\\\\b.s3.cn-northwest-1.x\\y", {"cn-northwest-1", Constraint::cn_northwest_1, "b"}},
      {"https://\\\\b.s3.sa-east-1.x", {"sa-east-1", Constraint::sa_east_1, "//b"}},
      {"my-us-east-1.s3.eu-west-1.x", {"us-east-1", Constraint::us_east_1, "my-us-east-1"}},
      {".s3.us-gov-west-1.x", {"us-gov-west-1", Constraint::us_gov_west_1, ""}},
  };
  for (const auto& [text, expected] : cases) {
    const AwsAddress address = ParseAddress(text);
    EXPECT_EQ(address.region, expected.region) << text;
    EXPECT_EQ(address.constraint, expected.constraint) << text;
    EXPECT_EQ(address.bucket, expected.bucket) << text;
  }
}

TEST_F(Scanner, TypeDecidesWhatIsMade) {
  for (const char* type : {"1", "2", "3", "5", "5 and more"}) {
    const auto scanner = Open({{"Type", type}});
    EXPECT_EQ(std::dynamic_pointer_cast<CLocalDiskScanner>(scanner) != nullptr, type[0] != '5');
  }
  for (const char* type : {"0", "4", "-1"}) {
    EXPECT_THROW((void)Open({{"Type", type}}), const char*) << type;
  }
  EXPECT_THROW((void)CreateScanner({}, {}, bundle.platform), const char*);
  EXPECT_THROW((void)Open({{"Type", "bucket"}}), std::invalid_argument);
  EXPECT_THROW((void)Open({{"Type", "99999999999"}}), std::out_of_range);
}

TEST_F(Scanner, RefusesPropertiesThatNameNoBucketOrUser) {
  const struct {
    const char* property;
    const char* value;  // null: absent
    const char* reason;
  } cases[] = {
      {"UserName", nullptr, "required property missing"},
      {"FullyMountedPath", nullptr, "required property missing"},
      {"FullName", "b.s3.x", "required valid s3 path missing"},
      {"FullName", "us-east-1", "Invalid name property"},
      {"UserName", "", "Invalid user property"},
      {"Password", "", "Invalid password property"},
  };
  for (const auto& row : cases) {
    ScannerProperties properties = Properties();
    properties.erase(row.property);
    if (row.value != nullptr) properties[row.property] = row.value;
    host.ForgetTraffic();
    try {
      (void)CreateScanner(properties, {}, bundle.platform);
      ADD_FAILURE() << row.property;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), row.reason);
    }
    EXPECT_EQ(host.Lines().back().level, 75);
  }
}

TEST_F(Scanner, KnowsWhatLiesWithinItsMount) {
  const struct {
    const char* mount;
    const char* path;
    bool within;
  } cases[] = {
      {"/mnt/a", "/mnt/a/2024", true},   {"/mnt/a/", "/mnt/a/2024/01/x.ps", true},
      {"/mnt/a", "/mnt/a", false},       {"/mnt/a", "/mnt/ab/2024", false},
      {"/mnt/a/b/c", "/mnt/a/x", false}, {"\\mnt\\a", "\\mnt\\a\\2024", true},
  };
  for (const auto& row : cases) {
    const auto scanner = Open({{"FullyMountedPath", row.mount}});
    EXPECT_EQ(scanner->IsWithinMount(row.path), row.within) << row.mount << ' ' << row.path;
  }
}

TEST_F(Scanner, ComparesTargetsByWhatBothSay) {
  const auto scanner = Open();
  EXPECT_TRUE(scanner->IsSameTarget(Properties()));
  EXPECT_TRUE(scanner->IsSameTarget({{"Region", "other"}}));
  for (const char* key : {"FullName", "UserName", "Password"}) {
    ScannerProperties other = Properties();
    other[key] = "other";
    EXPECT_FALSE(scanner->IsSameTarget(other)) << key;
  }
}

}  // namespace
}  // namespace qvArchiving
