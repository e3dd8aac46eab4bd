// Messages that change how configured streams record.

#include "record/FrameIntake.h"
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

TEST_F(RunTimeConfig, PtzMessagesNameDevicesAndInputs) {
  const auto moves = [](int device, const std::string& input) {
    return Tag("PTZ", Device(device, Tag("Video", "<Input Opcode='17' Number='" + input + "'/>")));
  };
  Apply(ApplyPtz, moves(6, "1") + moves(7, "2") + moves(8, "258"));
  EXPECT_TRUE(ptz.IsMoving(0x00410601));
  EXPECT_TRUE(ptz.IsMoving(0x00410702));
  EXPECT_FALSE(ptz.IsMoving(0x00410802));
}

TEST_F(RunTimeConfig, MovingCameraIsSeenInTheSlotOfItsFrames) {
  const std::string sequence =
      Tag("Sequence Count='1'", "<Entry Position='0' Page='0' Input='7'/>");
  Configure(Owned(Numbered("Device", 1,
                           Tag("Video", Input(19, Expiring())) +
                               Tag("Codec", Encoder(1, Channel(3) + Channel(4)))) +
                  Numbered("Device", 2,
                           Tag("Codec", Encoder(0, Tag("Sequence Count='1'",
                                                       "<Entry Position='0' Page='0' Input='2'/>") +
                                                       Channel(0)) +
                                            Encoder(1, sequence + Channel(0))))));
  ptz.Apply(0x00410113, 17);
  ptz.Apply(0x00410207, 17);
  const struct {
    std::uint32_t provider, stream;
    bool moves;
  } rows[] = {{0x00410123, 0x00410123, true},  // split off
              {0x00410124, 0x00410181, false},
              {0x00410200, 0x004102FF, false},
              {0x00410220, 0x004102FF, true}};  // of the second encoder
  for (const auto& row : rows) {
    KelvoFrameHeader header{};
    header.FrameType = KELVO_FRAME_I;
    header.Seconds = static_cast<std::uint32_t>(bundle.clock.NowMs() / 1000);
    IntakeFrame(services, streams, ptz, host.NewBuffer("frame"), 5, row.provider, 0, header);
    const PendingFrame* frame = Stream(row.stream).Undecided().Back();
    ASSERT_NE(frame, nullptr) << std::hex << row.provider;
    EXPECT_EQ(frame->Provider, row.provider);
    EXPECT_EQ(frame->Ptz, row.moves) << std::hex << row.provider;
  }
}

// How frames are marked is tested through the plug-in.
TEST_F(RunTimeConfig, AlarmsOfAnActionStayUntilTheirEnd) {
  const std::string camera =
      Tag("Video", Input(0)) + Tag("Codec", Encoder(0, Channel(0) + AudioChannel(0)));
  Configure(Device(1, camera + Numbered("Context", 2, camera)));
  const auto alarm = [](std::int64_t time, int milliseconds, int record, int action = 7) {
    return "<Input Number='0' Time='" + std::to_string(time) + "' Milliseconds='" +
           std::to_string(milliseconds) + "' Action='" + std::to_string(action) + "' Record='" +
           std::to_string(record) + "'/>";
  };
  const auto act = [&](const std::string& devices) { Apply(ApplyActionDevices, devices); };
  using Active = decltype(ChannelSlot::ActiveAlarms);
  const RecordStream& stream = Stream(0x00410180);
  const Active& active = stream.Slots[0].ActiveAlarms;
  act(Device(1, Tag("Video", alarm(5, 500, 1) + alarm(5, 0, 1, 8))));
  EXPECT_EQ(active, (Active{{7, std::nullopt}, {8, std::nullopt}}));
  act(Device(1, Tag("Video", alarm(4000000000, 999, 0)) + Tag("Audio", alarm(2, 0, 1)) +
                    Tag("Other", alarm(5, 0, 1, 9))));
  EXPECT_EQ(active, (Active{{7, 4000000000999}, {8, std::nullopt}}));
  EXPECT_EQ(stream.Slots[16].ActiveAlarms, (Active{{7, std::nullopt}}));
  const Active& ofContext = Stream(0x20410180).Slots[0].ActiveAlarms;
  EXPECT_TRUE(ofContext.empty());
  act(Device(1, Numbered("Context", 2, Tag("Video", alarm(1, 0, 0)))));
  EXPECT_EQ(ofContext, (Active{{7, 1000}}));

  // Devices, contexts and inputs out of range name nothing, and all five attributes are needed.
  act(Device(257, Tag("Video", alarm(1, 0, 1, 9))) +
      Device(1, Numbered("Context", 16, Tag("Video", alarm(1, 0, 1, 9))) +
                    Tag("Video",
                        "<Input Number='-1' Time='1' Milliseconds='0' Action='9' Record='1'/>"
                        "<Input Number='0' Time='1' Milliseconds='0' Record='1'/>"
                        "<Input Number='0' Milliseconds='0' Action='9' Record='1'/>")));
  for (const ChannelSlot& slot : stream.Slots) EXPECT_EQ(slot.ActiveAlarms.count(9), 0u);
  EXPECT_EQ(active.size(), 2u);
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
  bundle.drives.Add(storage.Volume);
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
}

}  // namespace
}  // namespace qvsvr::kelvo
