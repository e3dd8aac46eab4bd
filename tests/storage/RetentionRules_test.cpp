#include "storage/RetentionRules.h"

#include <gtest/gtest.h>

#include <limits>

namespace qvsvr::kelvo {
namespace {

constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();

TEST(RetentionRules, CountsOnlyRealChangesOfTheGlobalRule) {
  struct Step {
    int type;
    std::int32_t days, expected;
    std::uint32_t changes;
  };
  const Step steps[] = {
      {3, 10, 0, 0},   {-1, 10, 0, 0},     {0, 10, 0, 0},       {1, 10, 10, 1}, {1, 10, 10, 1},
      {2, 10, -10, 2}, {2, kMin, kMax, 3}, {2, kMax, -kMax, 4}, {0, 77, 0, 5},
  };
  RetentionRules rules;
  for (const Step& step : steps) {
    rules.SetExpiration(step.type, step.days);
    EXPECT_EQ(rules.expirationDays, step.expected) << step.type << " " << step.days;
    EXPECT_EQ(rules.expirationChanges, step.changes) << step.type << " " << step.days;
  }
}

TEST(RetentionRules, IgnoresNegativeContentAgeAndCountsFlips) {
  RetentionRules rules;
  for (const int age : {-1, 0, 3600, 3600}) rules.SetContentAge(age);
  EXPECT_EQ(rules.contentAge, 3600);
  EXPECT_EQ(rules.contentAgeChanges, 1u);
  for (const bool on : {false, true, true, false}) rules.SetPreserveAudio(on);
  EXPECT_EQ(rules.preserveAudioChanges, 2u);
}

TEST(RetentionRules, ForgettingAProviderLeavesTheOthers) {
  const auto id = qv::kelvo::MakeStreamID;
  RetentionRules rules;
  rules.SetCameraExpiration(id(0, 0x00110000, 1, 2), 1, 30);
  rules.SetCameraExpiration(id(15, 0x00110000, 255, 0), 2, 7);
  rules.SetCameraExpiration(id(0, 0x00120000, 1, 2), 2, kMin);
  rules.SetCameraExpiration(id(0, 0x00120000, 1, 3), 0, 5);
  EXPECT_EQ(rules.cameraExpiration.at(id(0, 0x00110000, 1, 2)), 30);
  EXPECT_EQ(rules.cameraExpiration.at(id(15, 0x00110000, 255, 0)), -7);

  rules.AddKnownDevice(0x10110005);  // bits outside the provider don't count
  rules.AddKnownDevice(0x00120000);
  rules.ForgetDevice(0xF0110000);
  EXPECT_EQ(rules.knownDevices, std::set<std::uint32_t>{0x00120000});
  ASSERT_EQ(rules.cameraExpiration.size(), 2u);
  EXPECT_EQ(rules.cameraExpiration.at(id(0, 0x00120000, 1, 2)), kMax);
  EXPECT_EQ(rules.cameraExpiration.at(id(0, 0x00120000, 1, 3)), 5);
}

}  // namespace
}  // namespace qvsvr::kelvo
