#include <gtest/gtest.h>

#include <ctime>
#include <random>
#include <sstream>
#include <vector>

#include "tests/support/XmlAgreement.h"

namespace qvsvr::kelvo {
namespace {

// CPU time for one text. Builds that look closely are many times slower: they get smaller texts,
// and so does Windows, where other processes' time counts as well.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(NDEBUG) || \
    defined(_WIN32)
constexpr double kMostSeconds = 10;
constexpr std::size_t kMegabyte = 100'000;
#else
constexpr double kMostSeconds = 1;
constexpr std::size_t kMegabyte = 1'000'000;
#endif

std::string Repeat(std::string_view piece, std::size_t bytes) {
  std::string text;
  text.reserve(bytes + piece.size());
  while (text.size() < bytes) text += piece;
  return text;
}

// `bytes` of distinct attributes, `each` to an element.
std::string Attributes(std::size_t bytes, int each) {
  std::string text = "<r>";
  while (text.size() < bytes) {
    text += "<e";
    for (int i = 0; i < each && text.size() < bytes; ++i) text += " a" + std::to_string(i) + "=1";
    text += "/>";
  }
  return text + "</r>";
}

TEST(HostileXml, EndsInGoodTimeWhateverItIs) {
  constexpr int kAny = -1;
  const struct {
    const char* what;
    std::string text;
    int error;  // expected number, 0 for none
  } kRows[] = {
      {"100 levels", Repeat("<a>", 300) + "text &amp; more" + Repeat("</a>", 400), 0},
      {"101 levels", Repeat("<a>", 303) + Repeat("</a>", 404), 17},
      {"100 levels around a comment", Repeat("<a>", 300) + "<!-- c -->" + Repeat("</a>", 400), 17},
      {"nested 3 million deep", Repeat("<a>", 9 * kMegabyte), 17},
      {"the same behind a blank in an end tag", "<r><a></a >" + Repeat("<a>", 9 * kMegabyte), 17},
      {"the same behind a mark in a name", "<\xEF\xBB\xBFr><a/></r>" + Repeat("<a>", 303), 17},
      {"attributes behind a blank in an end tag",
       "<r><a></a\n>" + Attributes(kMegabyte, 1 << 30) + "</r>", 18},
      {"1 MB of attributes", Attributes(kMegabyte, 1 << 30), 18},
      {"6 MB of full elements", Attributes(6 * kMegabyte, 1024), 18},
      {"as many attributes as an element may have", Attributes(7080, 1024), 0},
      {"one more", Attributes(7088, 1025), 18},
      {"5 MB of usual elements", Attributes(5 * kMegabyte, 40), 0},
      {"10 MB of elements", "<r>" + Repeat("<a/>", 10'000'000) + "</r>", 19},
      {"70 MB", "<r>" + Repeat("x", 70'000'000) + "</r>", 19},
      {"10 MB of text", "<r>" + Repeat("text \n", 10 * kMegabyte) + "</r>", 0},
      {"10 MB of one name", std::string("<").append(Repeat("n", 10 * kMegabyte)) + "/>", 0},
      {"10 MB of one value", "<r a='" + Repeat("<v>", 10 * kMegabyte) + "'/>", 0},
      {"10 MB of comment", "<r><!--" + Repeat("--", 10 * kMegabyte) + "--></r>", 0},
      {"10 MB of declaration", "<?xml " + Repeat("a ", 10 * kMegabyte) + "?><r/>", 0},
      {"10 MB of open entities", "<r>" + Repeat("&#", 10 * kMegabyte) + "</r>", kAny},
      {"10 MB of open entities, ended", "<r>" + Repeat("&#x", 10 * kMegabyte) + "1;</r>", 20},
      {"10 MB of unknown", "<r>" + Repeat("<!x", 10 * kMegabyte), kAny},
      {"open CDATA", "<r><![CDATA[" + Repeat("]", 10 * kMegabyte), kAny},
      {"open start tag", "<r" + Repeat(" ", 10 * kMegabyte), kAny},
      {"crowd at the bottom",
       Repeat("<a>", 3 * 99) + Repeat("<b/>", 2 * kMegabyte) + Repeat("</a>", 4 * 99), 0},
  };
  XmlDocument document;
  for (const auto& row : kRows) {
    const std::clock_t start = std::clock();
    const bool parsed = document.ParseText(row.text);
    EXPECT_EQ(parsed, row.error == 0) << row.what << ": " << document.ErrorDesc();
    if (row.error != kAny) {
      EXPECT_EQ(document.ErrorId(), row.error) << row.what;
    }
    EXPECT_EQ(std::string_view(document.ErrorDesc()).empty(), parsed) << row.what;
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    EXPECT_LT(seconds, kMostSeconds) << row.what;
  }
  EXPECT_FALSE(document.ParseText(Repeat("<a>", 303)));
  EXPECT_STREQ(document.ErrorDesc(),
               "Elements nested too deeply (exceeds the configured maximum parse depth).");
}

// Each ending (between bars) cuts a token short, in each encoding; what a broken character or
// reference swallows must not lead behind the text.
TEST(HostileXml, UnterminatedTokensAreErrors) {
  std::istringstream endings(
      "<|</|</r|<a|<a |<a b|<a b |<a b=|<a b= |<a b='|<a b='c|<a b='c'|<a b=c|<a b=c'|<a /|"
      "<!|<!-|<!--|<!-- -|<!-- --|<![CDATA[|<![CDATA[]|<![CDATA[]]|<!DOCTYPE|<?|<?xml|"
      "<?xml |<?xml version|<?xml version=|<?xml version='1|<?xml version='>'|"
      "<?xml version='1' \n|<?XML encoding=utf-8 |&|&#|&#x|&#6|&#x6|&#65;|&amp|&lt|t| |"
      "\xEF|\xEF\xBB|\xEF\xBB\xBF|\xEF\xBF|\xC3|\xE2|\xE2\x82|\xF0|\xF0\x9F|\xF0\x9F\x98|"
      "\xFF|<a b='\xEF|<a b='\xF0|<a b='&#|<\xF0|<a \xE2|<a b=\xE2|<!--\xEF|<![CDATA[\xF0");
  for (std::string ending; std::getline(endings, ending, '|');) {
    for (const std::string beginning : {"<r>", "<?xml version='1.0'?><r>", "\xEF\xBB\xBF<r><s/>",
                                        "<?xml encoding='latin1'?><r a='1'>t"}) {
      const std::string text = beginning + ending;
      const std::vector<char> exact(text.begin(), text.end());
      XmlDocument document;
      EXPECT_FALSE(document.ParseText({exact.data(), exact.size()})) << text;
      EXPECT_STRNE(document.ErrorDesc(), "") << text;
    }
  }
}

// Random token soup: what the scan lets through the library parses to its end, and builds just what
// the scan counted; it prints as a text that is let through again.
TEST(HostileXml, ScanAndLibraryReadTheSame) {
  const char* const kTokens[] = {
      "<a>",      "<a>",       "<a>",       "</a>",         "</a>", "<b c='",   "<b c=\"",
      "'",        "\"",        ">",         "/>",           "<",    " ",        "=",
      "<!--",     "-->",       "<![CDATA[", "]]>",          "<!",   "<?xml ",   "?>",
      "version=", "encoding=", "utf-8",     "&#",           "1;",   ";",        "&amp;",
      "x",        "text",      "\xE2",      "\xEF",         "\xF0", "\xC3\xBC", "/",
      "</b>",     "<b>",       "<a b='1'>", "<a b=1>",      "\n",   "</a >",    "</",
      "<b ",      "/>",        "&",         "\xEF\xBB\xBF", "\xA0", "</a\t>"};
  std::mt19937 random(20260301);
  int parsed = 0;
  for (int round = 0; round < 60'000; ++round) {
    std::string soup = round % 3 == 0 ? "\xEF\xBB\xBF<a>" : round % 3 == 1 ? "<?xml ?><a>" : "<a>";
    for (std::size_t left = random() % 24; left > 0; --left) {
      soup += kTokens[random() % std::size(kTokens)];
    }
    if (round % 2 == 0) soup += "</a>";
    bool letThrough = false;
    ASSERT_EQ(testsupport::XmlDisagreement(soup, letThrough), "") << soup;
    parsed += letThrough ? 1 : 0;
  }
  EXPECT_GT(parsed, 1000) << "the soup is too thin to show anything";
}

}  // namespace
}  // namespace qvsvr::kelvo
