#include "host/Xml.h"

#include <gtest/gtest.h>

#include <clocale>
#include <locale>
#include <sstream>

#include "host/Log.h"

namespace qvsvr::kelvo {
namespace {

// Numbers, between bars, as a stream in the classic locale would extract them.
TEST(XmlNumbers, FollowStreamExtraction) {
  const auto expected = [](const std::string& text, auto start) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    auto value = start;
    return stream >> value ? value : start;
  };
  std::istringstream texts(
      "0|-7|+7|\t\r\n\v\f 7 |7x|x7|| |-|+|--7|+-7|- 7|0x10|1.9|1e3|1,000|"
      "2147483647|2147483648|-2147483648|-2147483649|4294967295|4294967296|-1|-4294967295|"
      "-4294967296|18446744073709551615|18446744073709551616|99999999999999999999999999999|"
      "0000000000000000000000000000000000000042|\xC2\xA0|7\xFF");
  for (std::string text; std::getline(texts, text, '|');) {
    TiXmlElement element("e");
    element.SetAttribute("n", text);
    std::int32_t number = -77;
    EXPECT_EQ(ReadInt(element, "n", number), expected(text, -77) != -77) << text;
    EXPECT_EQ(number, expected(text, -77)) << text;
    std::uint32_t unsignedNumber = 77;
    EXPECT_EQ(ExtractUnsigned(element, "n", unsignedNumber), expected(text, 77U) != 77U) << text;
    EXPECT_EQ(unsignedNumber, expected(text, 77U)) << text;
  }
  std::int32_t number = 5;
  EXPECT_FALSE(ReadInt(TiXmlElement("e"), "n", number));
  EXPECT_EQ(number, 5);
}

TEST(XmlNumbers, HaveAPointWhateverTheLocale) {
  const struct {
    double value;
    const char *general, *fixed;
  } rows[] = {
      {0, "0", "0.00"}, {0.494392, "0.494392", "0.49"}, {1234567, "1.23457e+06", "1234567.00"}};
  const std::string before = std::setlocale(LC_NUMERIC, nullptr);
  for (const char* name : {"C", "de_DE.UTF-8", "fr_FR.UTF-8", "German"}) {
    if (std::setlocale(LC_NUMERIC, name) == nullptr) continue;
    for (const auto& [value, general, fixed] : rows) {
      TiXmlElement element("e");
      SetDouble(element, "v", value);
      EXPECT_STREQ(ReadText(element, "v"), general) << name;
      EXPECT_EQ(FormatFixed(value, 2), fixed) << name;
    }
  }
  std::setlocale(LC_NUMERIC, before.c_str());
}

}  // namespace
}  // namespace qvsvr::kelvo
