#pragma once

#include "tests/plugin/PluginFixture.h"

namespace plugintest {

// `depth` elements one in the other below the root, closed if `closed`.
inline std::string Nested(int depth, bool closed) {
  std::string text = "<qDVR>";
  text += Times(depth, "<Devices>");
  if (closed) text.append(Times(depth, "</Devices>")).append("</qDVR>");
  return text;
}

// A full configuration of that many devices in one Devices element.
inline std::string ManyDevices(int count, std::uint32_t provider) {
  std::string text = "<qDVR><Devices ID='" + std::to_string(provider) + "'>";
  for (int n = 0; n < count; ++n) {
    text += "<Device Number='" + std::to_string(n) +
            "'><Video><Input Number='0' Name='n'><Schedule><Entry FirstHour='0' LastHour='167' "
            "Record='2'/></Schedule></Input></Video><Codec><Encoder Number='0'><Channel Number='0' "
            "Standard='2' Width='64' Height='64'/></Encoder></Codec></Device>";
  }
  return text + "</Devices></qDVR>";
}

// Messages that a host should never send. None of them names provider 0x00110000, whose camera the
// tests keep recording.
inline std::vector<std::string> HostileMessages() {
  std::string attributes = "<qDVR ";
  for (int n = 0; attributes.size() < 1'000'000; ++n) {
    attributes.append("A").append(std::to_string(n)).append("='0123456789' ");
  }
  const auto device = [](const std::string& inside) {
    return "<qDVR><Devices ID='1179648'><Device Number='0'>" + inside +
           "</Device></Devices></qDVR>";
  };
  const std::string channel = "<Channel Number='0' Standard='2' Width='64' Height='64'/>";
  return {
      std::string(1, '\0'),
      std::string(1000, '\0'),
      "   \n\t ",
      "qDVR",
      "<qDVR><Devices ID='1114112'><Dev",
      "<qDVR Delta='0",
      "<qDVR><!-- ",
      "<qDVR><![CDATA[",
      "<qDVR A='&#xFFFFFFFFFF;&#0;&lt;&nothing;&'/>",
      "<qDVR><A></B></qDVR></qDVR>",
      "<other/><qDVR/>",
      "<qDVR \xFF\xFE='\x80\xC0\xAF'><\xF5/></qDVR>",
      "<qDVR A='\xE2\x82",
      std::string("\xFF\xFE<\0q\0D\0V\0R\0/\0>\0", 16),
      "<%s%n%s%n qDVR='%s%n'/>",
      attributes + "/>",
      Nested(100'000, true),
      Nested(100'000, false),
      "<qDVR Delta='99999999999999'><Devices ID='-99999999999999999999'/><Devices "
      "ID='x'/><Devices/><Events ID='655360x'/></qDVR>",
      "<qDVR><Devices ID='1179648'><Device Number='-1'/><Device Number='4294967296'/><Device "
      "Number='99999999999'/><Device Number=''/><Device/></Devices></qDVR>",
      device("<Context Number='-1'/><Context Number='0'/><Context Number='16'/><Context "
             "Number='2147483647'/><Context Number='-2147483648'/>"),
      device("<Video><Input Number='-1'/><Input Number='32'/><Input "
             "Number='2147483647'/></Video><Audio><Input Number='-1'/><Input "
             "Number='-2147483648'/><Input Number='32'/></Audio>"),
      device("<Video><Input Number='0'><Motion PreMotion='2147483647' BeginThreshold='2147483647' "
             "PostMotion='-2147483648'/><Schedule><Entry FirstHour='-2147483648' "
             "LastHour='2147483647' Record='2147483647'/><Expiration Type='-1' "
             "Days='-2147483648'/></Schedule></Input></Video><Codec><Encoder Number='0'>" +
             channel + "</Encoder></Codec>"),
      device("<Video><Input Number='31'/></Video><Codec><Encoder Number='-1'>" + channel +
             "</Encoder><Encoder Number='2147483647'>" + channel +
             "</Encoder><Encoder Number='64'><Channel Number='-1' Standard='-1' Width='-1' "
             "Height='-1'/><Channel Number='16'/><Channel Number='-2147483648'/><AudioChannel "
             "Number='-1' Standard='1' SampleRate='-1' BufSizeSamples='2147483647'/><AudioChannel "
             "Number='16'/><AudioChannel Number='2147483647'/></Encoder></Codec>"),
      device("<Video><Input Number='0'/></Video><Codec><Encoder Number='0'><Sequence "
             "Count='2147483647'><Entry Position='-1' Input='0' Page='0'/><Entry Position='255' "
             "Input='2147483647' Page='0'/><Entry Position='256' Input='0' Page='0'/><Entry "
             "Position='0' Input='-2147483648' Page='0'/></Sequence>" +
             channel + "</Encoder><Encoder Number='1'><Sequence Count='-5'/>" + channel +
             "</Encoder></Codec>"),
      "<qDVR><Devices ID='1179648'><Device Number='0'><Video><Input Number='77' "
      "Time='9223372036854775807' Milliseconds='2147483647' Action='-1' Record='1'/><Input "
      "Number='0' Time='1'/></Video></Device></Devices></qDVR>",
      "<qDVR><Events ID='655360'><Event PreAlarm='-2147483648'><Action><Devices "
      "ID='1179648'><Device Number='0'><Video><Input "
      "Number='2147483647'/></Video></Device></Devices></Action></Event></Events></qDVR>",
      "<qDVR><PTZ><Devices ID='1179648'><Device Number='-1'><Video><Input Number='-1' "
      "Opcode='2147483647'/><Input/></Video></Device></Devices></PTZ></qDVR>",
      "<qDVR Delta='1'><Storage ID='327680' TimeLapse='-1' ContentAge='-9'><Drive/><Drive Name='' "
      "Enabled='9' Percent='2147483647'/></Storage></qDVR>",
      "<qDVR><Devices ID='1179648'>" +
          Times(2,
                "<Device Number='1'><Video><Input Number='0'/><Input "
                "Number='0'/></Video><Codec><Encoder Number='0'>" +
                    channel + channel + "</Encoder><Encoder Number='0'>" + channel +
                    "</Encoder></Codec></Device>") +
          "</Devices><Devices ID='1179648'/></qDVR>"};
}

}  // namespace plugintest
