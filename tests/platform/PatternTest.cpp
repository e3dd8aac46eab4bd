#include "platform/Pattern.h"

#include <gtest/gtest.h>

#include <string>

namespace qv::kelvo {
namespace {

TEST(Pattern, MatchesWholeNamesWithoutRegardToCase) {
  const struct {
    const char* name;
    const char* pattern;
    bool matches;
  } kRows[] = {
      {"2026", "20??", true},
      {"20260", "20??", false},
      {"202", "20??", false},
      {"07", "??", true},
      {"a.ps", "*.ps", true},
      {"a.psi", "*.ps", false},
      {"A.PS", "*.ps", true},
      {"a.ps", "*.PS", true},
      {".ps", "*.ps", true},
      {"ps", "*.ps", false},
      {"a.ps.ps", "*.ps", true},
      {"abc", "abc", true},
      {"abc", "ab", false},
      {"ab", "abc", false},
      {"", "", true},
      {"", "*", true},
      {"", "?", false},
      {"x", "", false},
      {"abcabd", "*abd", true},
      {"aXbXc", "a*x*c", true},
      {"mississippi", "m*iss*ip*", true},
      {"mississippi", "m*ipp", false},
      {"a*b", "a?b", true},
      {"[", "{", false},
      {"@", "`", false},
      {"K\xC3\xBC"
       "che",
       "K?che", true},  // one letter of two bytes
      {"\xC3\xBC", "??", false},
      {"\xE2\x82\xAC.ps", "?.ps", true},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(MatchesPattern(row.name, row.pattern), row.matches)
        << row.name << " against " << row.pattern;
  }
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
