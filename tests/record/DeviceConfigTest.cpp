#include <sstream>

#include "tests/record/ConfigFixture.h"

namespace qvsvr::kelvo {
namespace {

class DeviceConfig : public ConfigFixture {
 protected:
  // All streams in their order: id, active channels and, with an open file, a star.
  std::string State() const {
    std::ostringstream text;
    text << std::hex;
    for (const auto& stream : streams.All()) {
      text << stream->StreamId << ':' << stream->ActiveChannels << (stream->HasFile() ? "* " : " ");
    }
    return text.str();
  }
};

// The slots in use, each with its input.
std::string Inputs(const RecordStream& stream) {
  std::ostringstream text;
  for (std::size_t slot = 0; slot < kSlots; ++slot) {
    if (stream.Slots[slot].Encoder >= 0) text << slot << ':' << stream.Slots[slot].Input << ' ';
  }
  return text.str();
}

std::string Describe(const ChannelSlot& slot) {
  std::ostringstream text;
  const auto list = [&](const Schedule& schedule) {
    for (const ScheduleEntry& e : schedule) {
      text << " [" << e.FirstHour << '-' << e.LastHour << ':' << e.Value << ']';
    }
  };
  text << slot.Name << " enc " << slot.Encoder << " std " << slot.Standard << ' ' << slot.Width
       << 'x' << slot.Height << ' ' << slot.SampleRate << '/' << slot.BufSizeSamples << " motion "
       << slot.PreMotion << '+' << slot.PostMotion << " alarm " << slot.PreAlarm;
  list(slot.Schedule);
  text << " lapse";
  list(slot.LapseSchedule);
  return text.str();
}

TEST_F(DeviceConfig, EncoderStreamTakesInputsAndFormats) {
  Store("",
        "<Devices ID='4259840'><Device Number='5'><Video><Input Number='19'><Schedule><Entry "
        "FirstHour='1' LastHour='2' "
        "TimeLapse='3000'/></Schedule></Input></Video></Device></Devices>");
  preAlarm[0x00410513] = 7;
  Configure(Device(
      5,
      Tag("Video", Input(19, "<Motion BeginThreshold='200' PreMotion='3000' PostMotion='5000'/>" +
                                 Tag("Schedule",
                                     "<Entry FirstHour='8' LastHour='17' Record='1'/>"
                                     "<Entry FirstHour='9' Record='2'/>"
                                     "<Entry FirstHour='0' LastHour='167' Record='0'/>"))) +
          Tag("Audio", Input(18)) +
          Tag("Codec", Encoder(1, Channel(3) + AudioChannel(2) + AudioChannel(16)))));

  RecordStream& stream = Stream(0x00410581);
  EXPECT_EQ(State(), "410581:2* ");
  EXPECT_EQ(stream.Layout, 0x81);
  EXPECT_EQ(Inputs(stream), "3:3 18:2 ");
  EXPECT_EQ(Describe(stream.Slots[3]),
            "in19 enc 1 std 1 704x576 0/0 motion 3200+5000 alarm 7 "
            "[8-17:1] [0-167:0] lapse [1-2:3000]");
  EXPECT_EQ(Describe(stream.Slots[18]),
            "in18 enc 1 std 2 0x0 8000/160 motion 0+0 alarm 0 [0-167:2] lapse");
  EXPECT_EQ(stream.SlotOf(0x23), 3);
  EXPECT_EQ(stream.SlotOf(0x32), 18);
  EXPECT_EQ(stream.SlotOf(0x20), -1);
  // Behind the broadcast of the start.
  ASSERT_EQ(host.Events().size(), 3u) << "video and audio announce themselves";
  EXPECT_NE(host.Events()[1].text.find("Number=\"19\" RecordIdle=\"1\""), std::string::npos);
  EXPECT_NE(host.Events()[2].text.find("Number=\"18\" RecordIdle=\"1\""), std::string::npos);
}

TEST_F(DeviceConfig, SequenceSharesOneStreamAmongEncoders) {
  const auto entry = [](int position, int input) {
    return "<Entry Page='0' Position='" + std::to_string(position) + "' Input='" +
           std::to_string(input) + "'/>";
  };
  const auto sequence = [](int count, const std::string& entries) {
    return Tag("Sequence Count='" + std::to_string(count) + "'", entries);
  };
  const std::string four = entry(0, 2) + entry(1, -1) + entry(3, 5) + entry(4, 9) + entry(2, 6);
  const std::string noPage = "<Entry Position='1' Input='8'/>";
  const auto configure = [&](const std::string& first, const std::string& second, bool running) {
    const std::string channels = Channel(0) + Channel(1) + Channel(2) + Channel(0);
    Configure(Device(
        1,
        Tag("Codec", Encoder(0, first + channels + AudioChannel(4), running) +
                         Encoder(1, second + Channel(0) + Channel(3) + Channel(1) + AudioChannel(5),
                                 running))));
  };

  configure(sequence(4, entry(256, 30) + entry(-1, 31) + four + noPage),
            sequence(2, entry(0, 7) + entry(1, 11)), false);
  RecordStream& stream = Stream(0x004101FF);
  EXPECT_EQ(State(), "4101ff:5* ") << "a repeated channel counts once";
  EXPECT_EQ(stream.Layout, 0xFF);
  // Position 4 lies past the count. The second encoder ends its list at channel 3, so that the slot
  // of input 11 stays without a format.
  EXPECT_EQ(Inputs(stream), "0:2 1:6 2:5 3:7 20:4 ");
  EXPECT_EQ(stream.EffectiveInput(3), 7) << "inputs are numbered within the device";
  EXPECT_EQ(stream.SlotOf(0x02), 2);
  EXPECT_EQ(stream.SlotOf(0x20), 3);
  EXPECT_EQ(stream.SlotOf(0x14), 20);
  EXPECT_EQ(stream.SlotOf(0x35), -1) << "only encoder 0 has audio";

  // While it runs, inputs stay; slots behind the last encoder are emptied.
  configure(sequence(1, entry(0, 12)), sequence(0, ""), true);
  EXPECT_EQ(Inputs(stream), "0:2 20:4 ");
  EXPECT_EQ(stream.SlotOf(0x20) + stream.SlotOf(0x02), -2) << "nobody's frames go elsewhere";

  // An encoder that runs on takes a slot that was another's: as new.
  configure(sequence(2, entry(0, 2) + entry(1, 3)), sequence(1, entry(0, 7)), false);
  configure(sequence(1, entry(0, 2)), sequence(1, entry(0, 7)), true);
  EXPECT_EQ(Inputs(stream), "0:2 1:7 20:4 ");
  EXPECT_EQ(stream.SlotOf(0x20), 1);
  EXPECT_EQ(stream.SlotOf(0x01), -1);

  // More positions than there are slots.
  std::string entries;
  for (int i = 0; i < 300; ++i) entries += entry(i, 1);
  configure(sequence(256, entries), sequence(2147483647, entries), false);
  EXPECT_EQ(stream.ActiveChannels, 4);
}

TEST_F(DeviceConfig, ContextsAreDevicesOfTheirOwn) {
  const std::string codec = Tag("Codec", Encoder(0, Channel(0)));
  const std::string camera = Tag("Video", Input(0)) + codec;
  Configure(Device(2, codec + Numbered("Context", 3, camera) + Numbered("Context", 16, camera) +
                          Numbered("Context", 0, camera) + Numbered("Context", 4, codec) +
                          Numbered("Context", 5, "<Video/>" + codec) +
                          Numbered("Context", 15, camera) + Tag("Context", camera)));
  EXPECT_EQ(State(), "410280:1* 30410280:1* f0410280:1* ");
  EXPECT_EQ(host.CountLines(LogWarning, "invalid context number 16"), 1u);
  EXPECT_EQ(host.CountLines(LogWarning, "invalid context number 0"), 1u);
  EXPECT_EQ(Stream(0x00410280).Slots[0].Name, "") << "without Video there is nothing to take";
}

TEST_F(DeviceConfig, RestartBeginsANewFileAndRunningKeepsTheOld) {
  Configure(Owned(Camera(1)));
  RecordStream& stream = Stream(0x00410180);
  AddFrame(stream);
  const auto opened = stream.GetOpenTime();
  bundle.clock.Advance(2000);

  Configure(Owned(Camera(1, true, Schedule(1))));
  EXPECT_EQ(stream.GetOpenTime(), opened);
  EXPECT_EQ(stream.Undecided().Size(), 1u);
  EXPECT_EQ(stream.Slots[0].Schedule.front().Value, 1) << "updated in place";
  EXPECT_EQ(stream.ActiveChannels, 1);

  Configure(Owned(Camera(1)));
  EXPECT_EQ(stream.GetOpenTime(), bundle.clock.NowMs());
  EXPECT_EQ(stream.Undecided().Size(), 0u);
  EXPECT_EQ(tree.FilesEndingIn(".ps").size(), 1u) << "the first file had no frames";
}

TEST_F(DeviceConfig, ChannelsNotNamedAreEmptiedAndDisabledOnesDropFrames) {
  const auto codec = [](const std::string& inner, bool running) {
    return Device(1, Tag("Codec", Encoder(0, inner, running)));
  };
  Configure(codec(Channel(0) + Channel(1) + Channel(2) + AudioChannel(0) + AudioChannel(1), false));
  RecordStream& stream = Stream(0x00410180);
  for (const std::uint32_t lowByte : {0u, 1u, 2u, 16u, 17u}) AddFrame(stream, lowByte);
  ASSERT_EQ(stream.Undecided().Size(), 5u);
  Configure(
      codec("<Channel Number='0' Enabled='0'/><AudioChannel Number='0' Enabled='0'/>" + Channel(1),
            true));
  EXPECT_EQ(Inputs(stream), "0:0 1:1 16:0 ");
  EXPECT_EQ(stream.Undecided().Size(), 1u);
  EXPECT_NE(stream.Undecided().SlotFront(1), nullptr);
  EXPECT_EQ(stream.ActiveChannels, 1) << "a channel without a format isn't active";
}

TEST_F(DeviceConfig, ExpiringInputIsSplitOffItsEncoder) {
  const auto configure = [&](const std::string& schedule, bool running) {
    Configure(Device(
        1, Tag("Video", Input(16) + Input(19, schedule)) + Tag("Audio", Input(19)) +
               Tag("Codec", Encoder(1, Channel(0) + Channel(3) + AudioChannel(3), running))));
  };
  configure(Schedule(2), false);
  RecordStream& parent = Stream(0x00410181);
  AddFrame(parent, 0x23);
  EXPECT_EQ(State(), "410181:3* ");

  // The audio stays. The encoder runs on, but the stream is new.
  configure(Expiring(), true);
  EXPECT_EQ(State(), "410181:2* 410123:1* ");
  RecordStream& own = Stream(0x00410123);
  EXPECT_EQ(parent.Undecided().Size(), 0u);
  EXPECT_EQ(own.SlotOf(0x23), 0);
  EXPECT_EQ(own.Slots[0].Name, "in19");
  EXPECT_EQ(Inputs(own), "0:19 16:19 ") << "numbered as within the device";
  EXPECT_EQ(own.EffectiveInput(0), 19);
  EXPECT_EQ(own.Slots[16].SampleRate, 8000);
  EXPECT_EQ(own.Layout, 0xFF);
  EXPECT_EQ(streams.Route(0x00410123), &own);
  EXPECT_EQ(streams.Route(0x00410133), &parent);

  // What runs in the channel goes on through another message.
  own.Slots[0].ActiveAlarms[4] = std::nullopt;
  own.Slots[0].MotionTime = 5;
  configure(Expiring(), false);
  EXPECT_EQ(own.Slots[0].ActiveAlarms.count(4), 1u);
  EXPECT_EQ(own.Slots[0].MotionTime, 5);
  EXPECT_EQ(State(), "410181:2* 410123:1* ");
  configure(Expiring(), true);

  configure(Schedule(2), true);
  EXPECT_EQ(State(), "410181:3* ");
  EXPECT_EQ(streams.Route(0x00410123), &parent);
}

TEST_F(DeviceConfig, AudioOfAnExpiringInputFollowsTheSetting) {
  const auto configure = [&](const std::string& otherChannels, bool running) {
    Configure(Device(
        1, Tag("Video", Input(0, Expiring()) + (otherChannels.empty() ? "" : Input(1))) +
               Tag("Codec", Encoder(0, Channel(0) + AudioChannel(0) + otherChannels, running))));
  };
  const std::string apart = "410180:1* 410100:1* ", together = "410180:0 410100:2* ";
  configure("", false);
  RecordStream& own = Stream(0x00410100);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(State(), apart);
    RecordStream& parent = Stream(0x00410180);
    EXPECT_EQ(streams.Route(0x00410110), &parent);
    AddFrame(parent, 0x10);
    bundle.clock.Advance(1000);
    const std::size_t before = own.Undecided().Size();
    PlaceAudio(target, true);
    PlaceAudio(target, true);  // a second word of it changes nothing
    EXPECT_EQ(parent.Undecided().Size(), 0u) << "nothing would ever flush it";
    EXPECT_EQ(own.Undecided().Size(), before + 1);
    EXPECT_EQ(State(), together);
    EXPECT_EQ(streams.Route(0x00410110), &own);
    EXPECT_EQ(own.GetOpenTime(), bundle.clock.NowMs()) << "a new file, which names the audio";
    AddFrame(own, 0x10);
    EXPECT_NE(own.Undecided().SlotFront(16), nullptr);
    PlaceAudio(target, false);
  }

  // With the setting on, a configuration places the audio itself.
  Store("PreserveExpirationAudioWithVideo='1'");
  configure("", false);
  EXPECT_EQ(State(), together);
  EXPECT_EQ(streams.Route(0x00410110), &own);
  configure(Channel(1), false);
  EXPECT_EQ(State(), "410180:1* 410100:2* ") << "channel 1 stays";
  configure("", true);
  EXPECT_EQ(State(), together) << "the only input has left";

  // An input without audio takes none away.
  Configure(Device(1, Tag("Video", Input(0, Expiring()) + Input(1)) +
                          Tag("Codec", Encoder(0, Channel(0) + Channel(1)))));
  PlaceAudio(target, true);
  EXPECT_EQ(State(), apart);
  EXPECT_EQ(streams.Route(0x00410110), &Stream(0x00410180));
}

TEST_F(DeviceConfig, StreamsOfMissingOrDisabledDevicesGo) {
  const std::string other = Tag("Devices ID='4325376'", Camera(1));
  // Devices 1 and 257 share an id; the later one holds.
  Configure(Owned(Camera(1) + Camera(2, true) + Camera(3) + Camera(257)) + other);
  ASSERT_EQ(State(), "410180:1* 410280:1* 410380:1* 420180:1* ")
      << "new ones record, running or not";
  AddFrame(Stream(0x00410180));
  for (const std::uint32_t key : {0x00410100u, 0x00410300u, 0x00420100u}) ptz.Apply(key, 17);
  host.ForgetTraffic();

  Configure(Owned(Tag("Device Number='1' Enabled='0'", Tag("Codec", Encoder(0, Channel(0)))) +
                  Camera(3, true)));
  EXPECT_EQ(State(), "410380:1* 420180:1* ") << "the second is another owner's";
  EXPECT_EQ(host.CountLines(LogInfo, "deleted record stream 00410180"), 1u);
  EXPECT_EQ(host.CountLines(LogInfo, "Closed "), 2u);
  EXPECT_EQ(tree.FilesEndingIn(".ps").size(), 2u);
  EXPECT_EQ(reservations.ReservedGB(storage.Volume), 2);
  EXPECT_EQ(host.Outstanding(), 0u);
  EXPECT_FALSE(ptz.IsMoving(0x00410100)) << "nor would it when it comes back";
  EXPECT_TRUE(ptz.IsMoving(0x00410300) && ptz.IsMoving(0x00420100));
  EXPECT_EQ(host.Events().size(), 2u) << "the other owner's idle channel goes, the new one comes";
}

TEST_F(DeviceConfig, BadElementsAreLoggedAndSkipped) {
  struct Case {
    std::string inner;  // of device 1
    std::string line;   // empty for a silent skip
  };
  const auto sequence = [](const std::string& count, const std::string& entries) {
    return Tag("Codec", Encoder(0, Tag("Sequence Count='" + count + "'", entries) + Channel(0)));
  };
  const Case cases[] = {
      {Tag("Video", Input(32)), "invalid video input number 32"},
      {Tag("Video", Input(-2147483647)), "invalid video input number -2147483647"},
      {Tag("Video", "<Input Number='99999999999'/><Input/>"), ""},
      {Tag("Audio", Input(-2147483647)), "invalid audio input number -2147483647"},
      {Tag("Codec", Encoder(32, Channel(0))), "ID 00410000 device 1 invalid encoder 32"},
      {Tag("Codec", Encoder(-5, Channel(0))), "ID 00410000 device 1 invalid encoder -5"},
      {Tag("Codec", Encoder(31, Channel(0))),
       "ID 00410000 device 1 encoder 31 channel 0 invalid input 496"},
      {Tag("Codec", Encoder(2, AudioChannel(1))),
       "ID 00410000 device 1 encoder 2 channel 1 invalid audio 33"},
      {Tag("Codec", Encoder(0, Channel(16))), "ID 00410000 device 1 encoder 0 invalid channel 16"},
      {Tag("Codec", Encoder(0, Channel(-3))), "ID 00410000 device 1 encoder 0 invalid channel -3"},
      {Tag("Codec", Encoder(0, AudioChannel(16) + AudioChannel(-1))), ""},
      {Tag("Codec", Encoder(0, "<Channel Number='0' Standard='x' Width='1' Height='1'/>")), ""},
      {sequence("2147483647", "<Entry Position='255' Input='40' Page='0'/>"),
       "ID 00410000 device 1 encoder 0 channel 0 invalid input 40"},
      {sequence("2147483648", "<Entry Position='0' Input='1' Page='0'/>"), ""},
  };
  for (const Case& bad : cases) {
    SCOPED_TRACE(bad.inner);
    Configure(Owned(""));
    host.ForgetTraffic();
    Configure(Owned(Numbered("Device", 1, bad.inner) + Camera(2)));
    EXPECT_EQ(host.CountLines(LogWarning, "invalid"), bad.line.empty() ? 0u : 1u);
    EXPECT_EQ(host.CountLines(LogWarning, bad.line), bad.line.empty() ? 0u : 1u);
    EXPECT_EQ(Stream(0x00410280).ActiveChannels, 1) << "the next device";
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
