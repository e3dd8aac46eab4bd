#include "platform/Pattern.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace qv::kelvo {
namespace {

TEST(Pattern, MatchesWholeNamesWithoutRegardToCase) {
  for (const bool matches : {true, false}) {
    // Names, each with its pattern. Letters of several bytes count as one.
    std::istringstream rows(
        matches ? "2026 20?? 07 ?? a.ps *.ps A.PS *.ps a.ps *.PS .ps *.ps a.ps.ps *.ps abcabd *abd "
                  "aXbXc a*x*c mississippi m*iss*ip* a*b a?b x * \xC3\xBC.ps ?.ps "
                  "\xE2\x82\xAC.ps ?.ps"
                : "20260 20?? 202 20?? a.psi *.ps ps *.ps abc ab ab abc mississippi m*ipp [ { @ ` "
                  "\xC3\xBC ??");
    for (std::string name, pattern; rows >> name >> pattern;) {
      EXPECT_EQ(MatchesPattern(name, pattern), matches) << name << " against " << pattern;
    }
  }
  EXPECT_TRUE(MatchesPattern("", "") && MatchesPattern("", "*"));
  EXPECT_FALSE(MatchesPattern("", "?") || MatchesPattern("x", ""));
}

TEST(Pattern, ManyStarsDoNotMultiplyTheWork) {
  std::string stars;
  for (int i = 0; i < 60; ++i) stars += "*a";
  // Trying each star at each place would take longer than the universe has.
  EXPECT_FALSE(MatchesPattern(std::string(255, 'a') + "b", stars));
  EXPECT_TRUE(MatchesPattern(std::string(255, 'a'), stars));
}

}  // namespace
}  // namespace qv::kelvo
