#include "record/CRecordAlarms.h"

#include <gtest/gtest.h>

#include "host/Xml.h"
#include "tests/support/FakeHost.h"
#include "tests/support/ManualClock.h"

namespace qvsvr::kelvo {
namespace {

SProviderTuple Channel(std::uint32_t provider, std::uint32_t id = 0x120000, int context = 0) {
  SProviderTuple tuple;
  tuple.Provider = static_cast<std::int32_t>(provider);
  tuple.Id = id;
  tuple.Device = 2;
  tuple.Input = static_cast<int>(provider & 31);
  tuple.Context = context;
  return tuple;
}

class RecordAlarms : public ::testing::Test {
 protected:
  // The events since the last call: input number, `+` recording or `-` idle, and the path.
  std::string Events() {
    std::string text;
    for (const auto& event : host.Events()) {
      EXPECT_EQ(event.eventClass, KELVO_CLASS_EVENT);
      TiXmlDocument document;
      document.Parse(event.text.c_str());
      TiXmlHandle at(&document);
      at = at.FirstChild("qDVR").FirstChild("Devices").FirstChild("Device").FirstChild("Video");
      const TiXmlElement* input = at.FirstChild("Input").ToElement();
      if (input == nullptr) return "not an event: " + event.text;
      const std::string idle = input->Attribute("RecordIdle");
      const char* path = input->Attribute("Path");
      if (!text.empty()) text += ' ';
      text += input->Attribute("Number");
      text += idle == "1" ? '-' : '+';
      if (path != nullptr) text += path;
    }
    host.ForgetTraffic();
    return text;
  }

  qv::kelvo::ManualClock clock;
  FakeHost host;
  FakeCore core{clock};
  CRecordAlarms alarms{core};
};

TEST_F(RecordAlarms, OneEventPairPerFile) {
  alarms.AddProviders({Channel(1), Channel(2)});
  EXPECT_EQ(Events(), "1- 2-");
  alarms.NoteWrite(1, 0x80, 10, 0, "a");
  alarms.NoteWrite(1, 0x80, 11, 0, "a");
  alarms.NoteWrite(9, 0x80, 11, 0, "a");  // nobody's
  EXPECT_EQ(Events(), "1+a");
  alarms.NoteFileEnd(0x81, "b");
  EXPECT_EQ(Events(), "");
  alarms.NoteFileEnd(0x80, "a");
  alarms.NoteFileEnd(0x80, "a");
  EXPECT_EQ(Events(), "1-a");
  alarms.NoteWrite(2, 0x80, 12, 0, "c");
  alarms.NoteFileEnd(0, "");
  EXPECT_EQ(Events(), "2+c 1- 2-");
}

TEST_F(RecordAlarms, ConfigurationReplacesTheWholeRegistry) {
  const SProviderTuple mine = Channel(0x120201), recording = Channel(0x120202);
  const SProviderTuple other = Channel(0x90130204, 0x130000);  // negative: first in order
  alarms.AddProviders({mine, recording, other});
  EXPECT_EQ(Events(), "4- 1- 2-");
  alarms.NoteWrite(0x120202, 0x120280, 5, 0, "");
  EXPECT_EQ(Events(), "2+");
  // An idle channel is told as recording before it goes, a recording one goes silently, and another
  // owner's stays only if it is seen.
  alarms.RemoveProviders(0x120000, {mine, other});
  alarms.AddProviders({mine, other});
  EXPECT_EQ(Events(), "1+ 1-");
  alarms.RemoveProviders(0x120000, {mine});
  EXPECT_EQ(Events(), "4+ 1+");
  alarms.NoteWrite(0x120201, 1, 5, 0, "");
  EXPECT_EQ(Events(), "");
}

TEST_F(RecordAlarms, KnownChannelKeepsItsStateAndFirstTupleOfAProviderWins) {
  SProviderTuple twin = Channel(1);
  twin.Input = 30;
  alarms.AddProviders({Channel(1), twin});
  EXPECT_EQ(Events(), "1-");
  alarms.NoteWrite(1, 0x80, 10, 0, "");
  alarms.AddProviders({Channel(1)});
  EXPECT_EQ(Events(), "1+");
}

TEST(ProviderTuple, OrderComparesSignedFieldByField) {
  EXPECT_LT(Channel(0x80000000), Channel(0));
  EXPECT_LT(Channel(1, 0x80000000), Channel(1, 0));
  EXPECT_LT(Channel(1, 5, 9), Channel(2, 4, 0));
  EXPECT_LT(Channel(1, 5, 0), Channel(1, 5, 1));
  EXPECT_FALSE(Channel(1) < Channel(1));
}

}  // namespace
}  // namespace qvsvr::kelvo
