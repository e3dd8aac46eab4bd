#include "record/CRecordAlarms.h"

#include <gtest/gtest.h>

#include "host/Xml.h"
#include "tests/support/FakeHost.h"
#include "tests/support/ManualClock.h"

namespace qvsvr::kelvo {
namespace {

SProviderTuple Channel(std::uint32_t provider, std::uint32_t id = 0x120000) {
  SProviderTuple tuple;
  tuple.Provider = static_cast<std::int32_t>(provider);
  tuple.Id = id;
  tuple.Device = 2;
  tuple.Input = static_cast<int>(provider & 31);
  return tuple;
}

class RecordAlarms : public ::testing::Test {
 protected:
  // The events since the last call: input number, `+` recording or `-` idle, and the path. How they
  // are written is seen in tests/plugin.
  std::string Events() {
    std::string text;
    for (const auto& event : host.Events()) {
      TiXmlDocument document;
      document.Parse(event.text.c_str());
      TiXmlHandle at(&document);
      at = at.FirstChild("qDVR").FirstChild("Devices").FirstChild("Device").FirstChild("Video");
      const TiXmlElement* input = at.FirstChild("Input").ToElement();
      if (input == nullptr) return "not an event: " + event.text;
      if (!text.empty()) text += ' ';
      text += input->Attribute("Number");
      text += ReadText(*input, "RecordIdle") == std::string("1") ? '-' : '+';
      text += ReadText(*input, "Path");
    }
    host.ForgetTraffic();
    return text;
  }

  qv::kelvo::ManualClock clock;
  FakeHost host;
  FakeCore core{clock};
  CRecordAlarms alarms{core};
};

TEST_F(RecordAlarms, ChannelsAreToldPerFileUntilAConfigurationLeavesThemOut) {
  const SProviderTuple mine = Channel(0x120201), recording = Channel(0x120202);
  const SProviderTuple other = Channel(0x90130204, 0x130000);  // negative: first in order
  alarms.AddProviders({mine, recording, other});
  EXPECT_EQ(Events(), "4- 1- 2-");
  const auto write = [&](std::uint32_t provider) {
    alarms.NoteWrite(provider, 0x120280, 5, 0, "a");
  };
  write(0x120202);
  write(0x120202);
  write(9);  // nobody's
  EXPECT_EQ(Events(), "2+a");
  alarms.NoteFileEnd(0x120281, "b");
  EXPECT_EQ(Events(), "");
  alarms.NoteFileEnd(0x120280, "a");
  alarms.NoteFileEnd(0x120280, "a");
  EXPECT_EQ(Events(), "2-a");
  write(0x120202);
  EXPECT_EQ(Events(), "2+a");
  // An idle channel is told as recording before it goes, a recording one goes silently, and another
  // owner's stays only if it is seen.
  alarms.RemoveProviders(0x120000, {mine, other});
  alarms.AddProviders({mine, other});
  EXPECT_EQ(Events(), "1+ 1-");
  alarms.RemoveProviders(0x120000, {mine});
  EXPECT_EQ(Events(), "4+ 1+");
  write(0x120201);
  EXPECT_EQ(Events(), "");
}

}  // namespace
}  // namespace qvsvr::kelvo
