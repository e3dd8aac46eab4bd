#include "host/Xml.h"

#include <gtest/gtest.h>

#include <locale>
#include <sstream>
#include <vector>

namespace qvsvr::kelvo {
namespace {

std::string Nested(int levels, const std::string& inside) {
  std::string text;
  for (int i = 0; i < levels; ++i) text += "<e>";
  text += inside;
  for (int i = 0; i < levels; ++i) text += "</e>";
  return text;
}

constexpr char kTooDeep[] =
    "Elements nested too deeply (exceeds the configured maximum parse depth).";

TEST(XmlDocument, NestingEndsAtTheLimit) {
  const struct {
    int levels;
    const char* inside;
    bool parses;
  } kRows[] = {
      {99, "<e/>", true},
      {100, "", true},
      {100, "text &amp; more", true},
      {100, "<e/>", false},
      {100, "a<e/>", false},
      {100, "<!-- c -->", false},
      {100, "<![CDATA[x]]>", false},
      {100, "<!x>", false},
      {100, "<?pi?>", false},
      {99, "<e/><e>t</e>", true},
      {101, "", false},
      {5000, "x", false},
  };
  for (const auto& row : kRows) {
    XmlDocument document;
    EXPECT_EQ(document.ParseText(Nested(row.levels, row.inside)), row.parses)
        << row.levels << " levels around " << row.inside;
    EXPECT_EQ(document.Error(), !row.parses);
    if (row.parses) continue;
    EXPECT_EQ(document.ErrorId(), 17);
    EXPECT_STREQ(document.ErrorDesc(), kTooDeep);
    EXPECT_EQ(document.ErrorRow(), -1);
    EXPECT_EQ(document.ErrorCol(), -1);
  }
}

TEST(XmlDocument, NextTextStartsAfresh) {
  XmlDocument document;
  EXPECT_FALSE(document.ParseText("<a><b></a>"));
  EXPECT_NE(document.ErrorId(), 0);
  EXPECT_FALSE(document.ParseText(Nested(200, "")));
  EXPECT_TRUE(document.ParseText("<c/>"));
  EXPECT_FALSE(document.Error());
  EXPECT_EQ(document.ErrorId(), 0);
  ASSERT_NE(document.RootElement(), nullptr);
  EXPECT_STREQ(document.RootElement()->Value(), "c");
  EXPECT_EQ(document.RootElement()->NextSibling(), nullptr);
}

TEST(XmlDocument, TextEndsAtItsLengthOrItsFirstNul) {
  const std::vector<char> exact{'<', 'a', '/', '>'};  // nothing behind it that may be read
  XmlDocument document;
  EXPECT_TRUE(document.ParseText({exact.data(), exact.size()}));
  EXPECT_TRUE(document.ParseText(std::string_view("<a/>\0<b", 7)));
  EXPECT_FALSE(document.ParseText(std::string_view("<a><b\0/></a>", 12)));
  EXPECT_FALSE(document.ParseText({exact.data(), 3}));
}

TEST(XmlDocument, NoCutMessagePasses) {
  const std::string message =
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding='utf-8' ?><!-- c --><qDVR Delta=\"0\" a=b>"
      "<Cases>t&amp;&#65;\xC3\xBC<Case ID='1>2'/><![CDATA[<x>]]><!y></Cases></qDVR>";
  XmlDocument document;
  EXPECT_TRUE(document.ParseText(message)) << document.ErrorDesc();
  for (std::size_t size = 0; size < message.size(); ++size) {
    const bool usable = document.ParseText(message.substr(0, size)) && document.RootElement();
    EXPECT_FALSE(usable) << message.substr(0, size);
  }
}

TEST(XmlDocument, ErrorBehindTheRootAndTextWithoutOneCount) {
  for (const std::string_view text :
       {"<qDVR/><a", "<qDVR/><a>", "<qDVR/><a b='1' b='2'/>", "<qDVR/><?xml ", "", " \n\t", "hello",
        "\xEF\xBB\xBF", "\0<a/>"}) {
    XmlDocument document;
    EXPECT_FALSE(document.ParseText(text)) << text;
    EXPECT_TRUE(document.Error());
    EXPECT_STRNE(document.ErrorDesc(), "");
  }
}

// Numbers, between bars, as a stream in the classic locale would extract them.
TEST(XmlNumbers, FollowStreamExtraction) {
  const auto expected = [](const std::string& text, auto start) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    auto value = start;
    return stream >> value ? value : start;
  };
  std::istringstream texts(
      "0|7|-7|+7| 7|\t\r\n\v\f7|7 |7x|x7|| |-|+|--7|+-7|- 7|007|0x10|1.9|1e3|1,000|"
      "2147483647|2147483648|-2147483648|-2147483649|4294967295|4294967296|-1|-4294967295|"
      "-4294967296|18446744073709551615|18446744073709551616|-18446744073709551616|"
      "99999999999999999999999999999|-0|0000000000000000000000000000000000000042|"
      "\xC2\xA0"
      "7|7\xFF");
  for (std::string text; std::getline(texts, text, '|');) {
    TiXmlElement element("e");
    element.SetAttribute("n", text);
    std::int32_t number = -77;
    EXPECT_EQ(ExtractInt(element, "n", number), expected(text, -77) != -77) << text;
    EXPECT_EQ(number, expected(text, -77)) << text;
    int queried = -77;
    EXPECT_EQ(ReadInt(element, "n", queried), number != -77) << text;
    EXPECT_EQ(queried, number) << text;
    std::uint32_t unsignedNumber = 77;
    EXPECT_EQ(ExtractUnsigned(element, "n", unsignedNumber), expected(text, 77U) != 77U) << text;
    EXPECT_EQ(unsignedNumber, expected(text, 77U)) << text;
  }
  std::int32_t number = 5;
  EXPECT_FALSE(ExtractInt(TiXmlElement("e"), "n", number));
  EXPECT_EQ(number, 5);
  EXPECT_STREQ(ReadText(TiXmlElement("e"), "n"), "");
}

}  // namespace
}  // namespace qvsvr::kelvo
