// Messages that change how configured streams record.

#include "tests/record/ConfigFixture.h"

namespace qvsvr::kelvo {
namespace {

using RunTimeConfig = ConfigFixture;

std::string Linked(int seconds, const std::string& devices) {
  return "<Event PreAlarm='" + std::to_string(seconds) + "'><Action>" + devices +
         "</Action></Event>";
}

TEST_F(RunTimeConfig, EventsSetTheLargestPreAlarmOfAnInput) {
  const std::string camera = Tag("Video", Input(0) + Input(1)) +
                             Tag("Codec", Encoder(0, Channel(0) + Channel(1) + AudioChannel(1)));
  Configure(Device(1, camera + Numbered("Context", 2, camera)));
  const auto seconds = [&](std::uint32_t id, std::size_t slot) {
    return Stream(id).Slots[slot].PreAlarm;
  };
  const auto video = [](int number) { return Device(1, Tag("Video", Numbered("Input", number))); };
  const auto events = [](const std::string& inner) { return Tag("Events ID='655360'", inner); };

  Apply(ApplyEvents,
        events(Linked(5, video(0)) + Linked(10, video(0)) + Linked(20, video(1)) +
               Linked(4, video(1)) + Linked(-3, Device(1, Tag("Audio", Numbered("Input", 0)))) +
               Linked(6, Device(1, Numbered("Context", 2, Tag("Audio", Numbered("Input", 1))))) +
               Linked(99, video(33) + video(-1)) + Tag("Event", Tag("Action", video(0)))));
  EXPECT_EQ(seconds(0x00410180, 0), 10);
  EXPECT_EQ(seconds(0x00410180, 1), 20);
  EXPECT_EQ(seconds(0x00410180, 17), 0);
  EXPECT_EQ(seconds(0x20410180, 0), 0);
  EXPECT_EQ(seconds(0x20410180, 17), 6);
  EXPECT_EQ(seconds(0x00410180, 5), 0);

  // A camera that is configured later finds its seconds; other modules' elements don't count.
  Apply(ApplyEvents,
        Tag("Events ID='1'", Linked(50, video(0))) + Tag("Events", Linked(50, video(0))));
  Configure(Device(1, camera));
  EXPECT_EQ(seconds(0x00410180, 0), 10);

  Apply(ApplyEvents, events(""));
  EXPECT_EQ(seconds(0x00410180, 0), 0);
  EXPECT_TRUE(preAlarm.empty());
  EXPECT_EQ(stats.ievt, 3u);
}

TEST_F(RunTimeConfig, PtzOpcodesStartAndStopMovement) {
  struct Step {
    int opcode;
    bool moving;
  };
  const Step steps[] = {{31, false}, {17, true},  {31, false}, {18, true},  {32, true}, {54, true},
                        {31, false}, {33, true},  {31, true},  {32, false}, {34, true}, {52, true},
                        {32, true},  {54, false}, {53, true},  {99, true},  {54, false}};
  const auto message = [](int device, int input, int opcode) {
    return Tag("PTZ",
               Device(device, Tag("Video", "<Input Number='" + std::to_string(input) +
                                               "' Opcode='" + std::to_string(opcode) + "'/>")));
  };
  int row = 0;
  for (const Step& step : steps) {
    SCOPED_TRACE(row++);
    Apply(ApplyPtz, message(5, 3, step.opcode));
    EXPECT_EQ(ptz.IsMoving(0x00410503), step.moving);
  }
  Apply(ApplyPtz, message(6, 1, 17) + message(7, 2, 17) + message(8, 258, 17));
  EXPECT_TRUE(ptz.IsMoving(0x00410601));
  EXPECT_TRUE(ptz.IsMoving(0x00410702));
  EXPECT_FALSE(ptz.IsMoving(0x00410802));
  EXPECT_EQ(stats.eptz, std::size(steps) + 1);
}

TEST_F(RunTimeConfig, AlarmsMarkPendingFramesAndStayUntilTheirEnd) {
  const std::string camera =
      Tag("Video", Input(0)) + Tag("Codec", Encoder(0, Channel(0) + AudioChannel(0)));
  Configure(Device(1, camera + Numbered("Context", 2, camera)));
  RecordStream& stream = Stream(0x00410180);
  const std::int64_t seconds = system.clock.NowMs() / 1000;
  for (int i = 0; i < 3; ++i) {
    stream.Slots[0].PreMotion = 60000;  // keeps them pending
    AddFrame(stream);
    AddFrame(stream, 16);
    system.clock.Advance(1000);
  }
  const auto alarm = [](std::int64_t time, int milliseconds, int record, int action = 7) {
    return "<Input Number='0' Time='" + std::to_string(time) + "' Milliseconds='" +
           std::to_string(milliseconds) + "' Action='" + std::to_string(action) + "' Record='" +
           std::to_string(record) + "'/>";
  };
  const auto flags = [&](int slot) {
    std::string text;
    for (const PendingFrame* f = stream.Undecided().SlotFront(slot); f != nullptr;
         f = f->SlotNewer) {
      text += (f->Flags & kFlagAlarm) != 0 ? 'A' : '-';
    }
    return text;
  };

  Apply(ApplyActionDevices, Device(1, Tag("Video", alarm(seconds, 500, 1))));
  EXPECT_EQ(flags(0), "-AA");
  EXPECT_EQ(flags(16), "---");
  auto& active = stream.Slots[0].ActiveAlarms;
  ASSERT_EQ(active.count(7), 1u);
  EXPECT_FALSE(active[7].has_value());
  Apply(ApplyActionDevices,
        Device(1, Tag("Video", alarm(seconds, 500, 1) + alarm(seconds, 0, 1, 8))));
  EXPECT_EQ(active.size(), 2u);
  EXPECT_EQ(flags(0), "AAA");

  Apply(ApplyActionDevices,
        Device(1, Tag("Video", alarm(4000000000, 999, 0)) + Tag("Audio", alarm(seconds + 2, 0, 1)) +
                      Tag("Other", alarm(seconds, 0, 1))));
  EXPECT_EQ(active[7], 4000000000999);
  EXPECT_EQ(flags(16), "--A");
  EXPECT_TRUE(Stream(0x20410180).Slots[0].ActiveAlarms.empty());

  Apply(ApplyActionDevices, Device(1, Numbered("Context", 2, Tag("Video", alarm(1, 0, 0)))));
  EXPECT_EQ(Stream(0x20410180).Slots[0].ActiveAlarms[7], 1000);

  // Devices, contexts and inputs out of range name nothing, and all five attributes are needed.
  const std::size_t before = active.size();
  Apply(ApplyActionDevices,
        Device(257, Tag("Video", alarm(1, 0, 1, 9))) +
            Device(1, Numbered("Context", 16, Tag("Video", alarm(1, 0, 1, 9))) +
                          Tag("Video",
                              "<Input Number='-1' Time='1' Milliseconds='0' Action='9' "
                              "Record='1'/><Input Number='0' Time='1' Milliseconds='0' "
                              "Record='1'/><Input Number='0' Milliseconds='0' Action='9' "
                              "Record='1'/>")));
  EXPECT_EQ(active.size(), before);
  for (const ChannelSlot& slot : stream.Slots) EXPECT_EQ(slot.ActiveAlarms.count(9), 0u);
  EXPECT_EQ(stats.adev, 5u);
}

TEST_F(RunTimeConfig, StorageSettingsReachStreams) {
  Configure(Owned(Camera(1)));
  RecordStream& stream = Stream(0x00410180);
  Store(
      "TimeLapse='4000'",
      "<Devices ID='4259840'><Device Number='1'><Video><Input Number='0'><Schedule><Entry "
      "FirstHour='5' LastHour='6' TimeLapse='700'/></Schedule></Input></Video></Device></Devices>");
  UpdateStreams(target, false, false);
  EXPECT_EQ(stream.DefaultLapse, 4000);
  EXPECT_TRUE(stream.Slots[0].LapseSchedule.empty());
  EXPECT_TRUE(stream.HasFile());
  UpdateStreams(target, true, true);
  EXPECT_EQ(stream.Slots[0].LapseSchedule, (qvsvr::kelvo::Schedule{{5, 6, 700}}));
  EXPECT_FALSE(stream.HasFile());
}

TEST_F(RunTimeConfig, NewPreparedDriveEndsAllFiles) {
  system.drives.Add(storage.Volume);
  Configure(Owned(Camera(1) + Camera(2)));
  const auto prepared = [](const std::string& id, const std::string& drive) {
    return Tag("Storage ID='" + id + "'",
               Tag("Disk SupportsPrep='1'", Tag("Drives", "<Drive Name='" + drive + "'/>")));
  };
  const std::string known = storage.Volume, added = tree.MakeDirectory("second");
  ASSERT_TRUE(storage.LoadStorage());
  Apply(ApplyStorage, prepared("3604480", known) + prepared("327680", added));
  EXPECT_TRUE(Stream(0x00410180).HasFile());
  Apply(ApplyStorage, prepared("3604480", added) + prepared("3604480", known));
  EXPECT_FALSE(Stream(0x00410180).HasFile());
  EXPECT_FALSE(Stream(0x00410280).HasFile());
  EXPECT_EQ(stats.istg, 2u);
}

TEST_F(RunTimeConfig, HandlersCountMessagesThatNameTheirElement) {
  for (const Handler handler :
       {ApplyDevices, ApplyEvents, ApplyPtz, ApplyActionDevices, ApplyStorage}) {
    Apply(handler, "<Cases/>");
    Apply(handler, "<Devices/><Devices/><Events/><PTZ/><Storage/><Storage ID='x'/>");
  }
  EXPECT_EQ(stats.idev, 1u);
  EXPECT_EQ(stats.ievt, 1u);
  EXPECT_EQ(stats.eptz, 1u);
  EXPECT_EQ(stats.adev, 1u);
  EXPECT_EQ(stats.istg, 1u);
}

}  // namespace
}  // namespace qvsvr::kelvo
