#include <chrono>
#include <cstring>

#include "tests/plugin/PluginFixture.h"

namespace plugintest {
namespace {

// A block in which every byte is known, to see what the plug-in wrote.
template <class T>
T Marked() {
  T block;
  std::memset(&block, 0xAB, sizeof block);
  return block;
}

// Whether all bytes but those of one field at `offset` are as Marked made them.
template <class T>
bool OnlyWrote(const T& block, std::size_t offset, std::size_t size = 4) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&block);
  for (std::size_t i = 0; i < sizeof block; ++i) {
    const bool allowed = i >= offset && i < offset + size;
    if (!allowed && bytes[i] != 0xAB) return false;
  }
  return true;
}

using Lifecycle = PluginTest;

TEST_F(Lifecycle, LoadFillsTheDescriptorAndNothingElse) {
  KelvoLoadInput input{};
  auto descriptor = Marked<KelvoModuleDescriptor>();
  auto wanted = Marked<KelvoModuleDescriptor>();
  wanted.ModuleId = 0x00050000;
  wanted.CapabilityWord0 = 0x0600006C;
  wanted.CapabilityWord1 = 0x06000084;
  wanted.CapabilityWord2 = 0x02000010;
  wanted.CapabilityWord3 = 0x02000010;
  wanted.DescriptorTag = 0x0101;
  wanted.DescriptorValue = 25;
  EXPECT_EQ(host->Raw().Load(&input, &descriptor), 0u);
  EXPECT_EQ(std::memcmp(&descriptor, &wanted, sizeof wanted), 0);
}

TEST_F(Lifecycle, OpenAnnouncesTheModuleThenItsSettingsThenItsDrives) {
  Start();
  EXPECT_TRUE(host->WaitForLog("KELVO - RecordMgr worker - running"));
  Sync();
  const auto events = host->TakeEvents();
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[0].eventClass, KELVO_CLASS_BROADCAST);
  EXPECT_TRUE(
      events[0].xml.starts_with("<?xml ?><qDVR Delta=\"0\"><Modules><Module Name=\"KELVO\" "
                                "ID=\"327680\" Version=\"1."))
      << events[0].xml;
  EXPECT_EQ(events[1].eventClass, KELVO_CLASS_BROADCAST);
  EXPECT_NE(events[1].xml.find("<Storage ID=\"327680\""), std::string::npos);
  EXPECT_EQ(events[2].eventClass, KELVO_CLASS_EVENT);
}

TEST_F(Lifecycle, WriteAnswersInTheFieldOfEachCase) {
  Start();
  const auto write = [&](std::uint8_t refuse, std::uint32_t source, KelvoWriteReply& reply) {
    KelvoWriteBlock block{};
    block.Refuse = refuse;
    block.Source = source;
    block.Class = KELVO_WRITE_ACTION;
    block.Payload = host->NewBuffer("<qDVR/>");
    block.Length = 7;
    reply = Marked<KelvoWriteReply>();
    EXPECT_EQ(host->Raw().Write(&block, &reply), 0u);
    if (reply.Accepted != 1) host->Release(block.Payload);
  };
  KelvoWriteReply reply;
  const auto expectResult = [&](std::uint8_t refuse, std::uint32_t source, std::uint32_t result) {
    write(refuse, source, reply);
    EXPECT_EQ(reply.Result, result);
    EXPECT_TRUE(OnlyWrote(reply, offsetof(KelvoWriteReply, Result)));
  };
  expectResult(1, 0x100, 0xFFFFFFFFu);
  expectResult(0, KELVO_MODULE_ID, 0);
  expectResult(1, KELVO_MODULE_ID, 0xFFFFFFFFu);
  for (const std::uint32_t accepted : {1, 0}) {
    write(0, 0x100, reply);
    EXPECT_EQ(reply.Accepted, accepted);
    EXPECT_TRUE(OnlyWrote(reply, offsetof(KelvoWriteReply, Accepted)));
    host->Close();
  }
}

TEST_F(Lifecycle, IoctlAnswersInTheFieldOfEachCase) {
  Start();
  char text[] = "<qDVR/>";
  const auto ioctl = [&](std::uint32_t operation, void* payload, std::uint32_t length) {
    KelvoIoctlBlock block{};
    block.Operation = operation;
    block.Payload = payload;
    block.Length = length;
    auto reply = Marked<KelvoIoctlReply>();
    EXPECT_EQ(host->Raw().IOCTL(&block, &reply), 0u);
    return reply;
  };
  for (const std::uint32_t operation : {0u, 1u, 4u, 7u, 0xFFFFFFFFu}) {
    const auto reply = ioctl(operation, text, 7);
    EXPECT_EQ(reply.Status, 0xFFFFFFFFu) << operation;
    EXPECT_TRUE(OnlyWrote(reply, offsetof(KelvoIoctlReply, Status)));
  }
  for (const std::uint32_t accepted : {1, 0}) {
    for (const std::uint32_t operation : {2u, 3u}) {
      EXPECT_TRUE(OnlyWrote(ioctl(operation, nullptr, 7), 0, 0));
      for (const std::uint32_t length : {0u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_TRUE(OnlyWrote(ioctl(operation, text, length), 0, 0)) << length;
      }
      void* buffer = host->NewBuffer("<qDVR/>");
      const auto reply = ioctl(operation, buffer, 7);
      EXPECT_EQ(reply.Accepted, accepted);
      EXPECT_TRUE(OnlyWrote(reply, offsetof(KelvoIoctlReply, Accepted)));
      if (accepted == 0) host->Release(buffer);
    }
    host->Close();
  }
}

TEST_F(Lifecycle, SeekAndEmptyReadAnswerAtOnce) {
  Start();
  auto seek = Marked<KelvoSeekReply>();
  EXPECT_EQ(host->Raw().Seek(nullptr, &seek), 0u);
  EXPECT_EQ(seek.Result, 0xFFFFFFFFu);
  EXPECT_TRUE(OnlyWrote(seek, offsetof(KelvoSeekReply, Result)));

  KelvoReadBlock block{};
  auto read = Marked<KelvoReadReply>();
  block.Length = 10;
  EXPECT_EQ(host->Raw().Read(&block, &read), 0u);
  block.Length = 0;
  block.Payload = "<qDVR/>";
  EXPECT_EQ(host->Raw().Read(&block, &read), 0u);
  EXPECT_TRUE(OnlyWrote(read, 0, 0));
  EXPECT_EQ(host->Raw().Read(nullptr, nullptr), 0u);
}

TEST_F(Lifecycle, CallsOutsideLoadAndUnloadAreHarmless) {
  KelvoWriteBlock write{};
  KelvoWriteReply writeReply{};
  KelvoIoctlBlock ioctl{};
  KelvoIoctlReply ioctlReply{};
  char text[] = "<qDVR/>";
  write.Payload = ioctl.Payload = text;
  write.Length = ioctl.Length = 7;
  ioctl.Operation = KELVO_IOCTL_CONFIGURATION;
  KelvoReadBlock read{};
  read.Payload = text;
  read.Length = 7;
  auto readReply = Marked<KelvoReadReply>();
  const auto& raw = host->Raw();
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(raw.Open(nullptr, nullptr), 0u);
    EXPECT_EQ(raw.Write(&write, &writeReply), 0u);
    EXPECT_EQ(writeReply.Accepted, 0u);
    EXPECT_EQ(raw.IOCTL(&ioctl, &ioctlReply), 0u);
    EXPECT_EQ(ioctlReply.Accepted, 0u);
    EXPECT_EQ(raw.Read(&read, &readReply), 0u);
    EXPECT_TRUE(OnlyWrote(readReply, 0, 0));
    EXPECT_EQ(raw.Close(nullptr, nullptr), 0u);
    EXPECT_EQ(raw.Unload(nullptr, nullptr), 0u);
    // The second round sees the plug-in as it is after an Unload.
    Start();
    Stop();
  }
}

TEST_F(Lifecycle, CloseBeforeOpenOnlyStops) {
  host->Load();
  host->Close();
  EXPECT_FALSE(Give(MakeFrame(0x100, KELVO_FRAME_I, NowMs(), 100, 1)));
  host->Open();
  host->Close();
  EXPECT_FALSE(Give(MakeFrame(0x100, KELVO_FRAME_I, NowMs(), 100, 1)));
}

TEST_F(Lifecycle, LoadWhileLoadedStartsAfresh) {
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), NowMs(), 40, Times(4, "IPPP"));
  for (int round = 0; round < 2; ++round) {
    Start({camera});
    GiveAll(frames);
    Sync();
  }
  Stop();
  // Both rounds made a file; the second in the same second has a name of its own.
  const auto recordings = RecordingsOf(camera);
  ASSERT_EQ(recordings.size(), 2u);
}

TEST_F(Lifecycle, StopsPromptlyWithoutTraffic) {
  const auto begin = std::chrono::steady_clock::now();
  for (int round = 0; round < 200; ++round) {
    Start();
    // Close meets the worker at ever another point of its way to its first wait.
    const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(round);
    while (std::chrono::steady_clock::now() < until) continue;
    Stop();
  }
  // A wake-up that got lost would cost a minute.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
}

TEST_F(Lifecycle, LevelOfTheHostHoldsFromTheNextLineOn) {
  host->SetLogLevel(KELVO_LOG_CRITICAL);
  Start({Camera()});
  EXPECT_EQ(CountLog(""), 0);
  host->SetLogLevel(KELVO_LOG_WARNING);
  host->WriteXml(KELVO_WRITE_ACTION, "<other/>");
  Sync();
  EXPECT_EQ(CountLog("skipping msg - qDVR is not root element"), 1);
  EXPECT_EQ(CountLog(""), 1);
}

}  // namespace
}  // namespace plugintest
