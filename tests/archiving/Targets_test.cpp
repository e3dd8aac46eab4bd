#include "archiving/AwsAddress.h"
#include "tests/archiving/TargetFixture.h"

namespace qvArchiving {
namespace {

using Constraint = Aws::S3::Model::BucketLocationConstraint;
using testsupport::Conversation;

class LocalTargets : public Target, public testing::WithParamInterface<Conversation> {};

TEST_P(LocalTargets, AnswerAsTold) {
  Hold(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Text, LocalTargets,
                         testing::ValuesIn(testsupport::ReadConversations(KELVO_TARGETS
                                                                          "disk.txt")),
                         [](const auto& made) { return made.param.name; });

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

}  // namespace
}  // namespace qvArchiving
