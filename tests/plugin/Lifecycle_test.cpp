#include <chrono>
#include <cstring>
#include <new>

#include "tests/plugin/PluginFixture.h"
#include "tests/support/FakeDrives.h"

namespace plugintest {
namespace {

// A block in which every byte is known, to see what the plug-in wrote.
template <class T>
T Marked() {
  T block;
  std::memset(&block, 0xAB, sizeof block);
  return block;
}

template <class T>
bool Same(const T& a, const T& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

class Lifecycle : public PluginTest {
 protected:
  // The raw calls; what they don't write stays marked.
  KelvoWriteReply Write(std::uint8_t refuse, std::uint32_t source) {
    KelvoWriteBlock block{};
    block.Refuse = refuse;
    block.Source = source;
    block.Class = KELVO_WRITE_ACTION;
    block.Payload = host->NewBuffer("<qDVR/>");
    block.Length = 7;
    auto reply = Marked<KelvoWriteReply>();
    EXPECT_EQ(host->Raw().Write(&block, &reply), 0u);
    if (reply.Accepted != 1) host->Release(block.Payload);
    return reply;
  }
  KelvoIoctlReply Ioctl(std::uint32_t operation, void* payload, std::uint32_t length) {
    KelvoIoctlBlock block{};
    block.Operation = operation;
    block.Payload = payload;
    block.Length = length;
    auto reply = Marked<KelvoIoctlReply>();
    EXPECT_EQ(host->Raw().IOCTL(&block, &reply), 0u);
    return reply;
  }
  KelvoReadReply Read(const void* payload, std::uint32_t length) {
    KelvoReadBlock block{};
    block.Payload = payload;
    block.Length = length;
    auto reply = Marked<KelvoReadReply>();
    EXPECT_EQ(host->Raw().Read(&block, &reply), 0u);
    return reply;
  }

  char text[8] = "<qDVR/>";
};

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
  EXPECT_TRUE(Same(descriptor, wanted));
}

TEST_F(Lifecycle, OpenAnnouncesTheModuleThenItsSettingsThenItsDrives) {
  Start();
  EXPECT_TRUE(host->WaitForLine("KELVO - RecordMgr worker - running"));
  Sync();
  const auto events = host->Events();
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[0].eventClass, KELVO_CLASS_BROADCAST);
  EXPECT_TRUE(
      events[0].text.starts_with("<?xml ?><qDVR Delta=\"0\"><Modules><Module Name=\"KELVO\" "
                                 "ID=\"327680\" Version=\"1."))
      << events[0].text;
  EXPECT_EQ(events[1].eventClass, KELVO_CLASS_BROADCAST);
  EXPECT_NE(events[1].text.find("<Storage ID=\"327680\""), std::string::npos);
  EXPECT_EQ(events[2].eventClass, KELVO_CLASS_EVENT);
}

TEST_F(Lifecycle, EachCallAnswersInItsOwnFieldOnly) {
  Start();
  const struct {
    std::uint8_t refuse;
    std::uint32_t source, result;
  } rows[] = {{1, 0x100, 0xFFFFFFFFu}, {0, KELVO_MODULE_ID, 0}, {1, KELVO_MODULE_ID, 0xFFFFFFFFu}};
  for (const auto& row : rows) {
    auto wanted = Marked<KelvoWriteReply>();
    wanted.Result = row.result;
    EXPECT_TRUE(Same(Write(row.refuse, row.source), wanted)) << row.result;
  }
  for (const std::uint32_t operation : {0u, 1u, 4u, 7u, 0xFFFFFFFFu}) {
    auto wanted = Marked<KelvoIoctlReply>();
    wanted.Status = 0xFFFFFFFFu;
    EXPECT_TRUE(Same(Ioctl(operation, text, 7), wanted)) << operation;
  }
  for (const std::uint32_t accepted : {1, 0}) {
    auto written = Marked<KelvoWriteReply>();
    written.Accepted = accepted;
    EXPECT_TRUE(Same(Write(0, 0x100), written));
    for (const std::uint32_t operation : {2u, 3u}) {
      const auto untouched = Marked<KelvoIoctlReply>();
      EXPECT_TRUE(Same(Ioctl(operation, nullptr, 7), untouched));
      for (const std::uint32_t length : {0u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_TRUE(Same(Ioctl(operation, text, length), untouched)) << length;
      }
      auto answered = untouched;
      answered.Accepted = accepted;
      void* buffer = host->NewBuffer(text);
      EXPECT_TRUE(Same(Ioctl(operation, buffer, 7), answered));
      if (accepted == 0) host->Release(buffer);
    }
    host->Close();
  }
  auto seek = Marked<KelvoSeekReply>(), sought = seek;
  sought.Result = 0xFFFFFFFFu;
  EXPECT_EQ(host->Raw().Seek(nullptr, &seek), 0u);
  EXPECT_TRUE(Same(seek, sought));
  EXPECT_TRUE(Same(Read(nullptr, 10), Marked<KelvoReadReply>()));
  EXPECT_TRUE(Same(Read(text, 0), Marked<KelvoReadReply>()));
  EXPECT_EQ(host->Raw().Read(nullptr, nullptr), 0u);
}

TEST_F(Lifecycle, CallsOutsideLoadAndUnloadAreHarmless) {
  const auto& raw = host->Raw();
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(raw.Open(nullptr, nullptr), 0u);
    EXPECT_EQ(Write(0, 0x100).Accepted, 0u);
    EXPECT_EQ(Ioctl(KELVO_IOCTL_CONFIGURATION, text, 7).Accepted, 0u);
    EXPECT_TRUE(Same(Read(text, 7), Marked<KelvoReadReply>()));
    EXPECT_EQ(raw.Close(nullptr, nullptr), 0u);
    EXPECT_EQ(raw.Unload(nullptr, nullptr), 0u);
    // The second round sees the plug-in as it is after an Unload, and after a Close before Open.
    host->Load();
    host->Close();
    EXPECT_EQ(Write(0, 0x100).Accepted, 0u);
    host->Open();
    Stop();
  }
}

// Drives that can't be asked for want of memory.
class NoMemory : public qv::kelvo::FakeDrives {
 public:
  int FixedDrives(std::vector<std::string>& names) override {
    return fails ? throw std::bad_alloc() : FakeDrives::FixedDrives(names);
  }
  bool fails = true;
};

class FailedOpen : public SeamTest {
 protected:
  FailedOpen() : SeamTest(&drives) { drives.Add(tree.MakeDirectory("drives/a")); }
  NoMemory drives;
};

TEST_F(FailedOpen, RefusesBlocksUntilTheNextOneSucceedsWhichIsTheLast) {
  const auto camera = Camera();
  const auto frames = MakeFrames(VideoProvider(camera), Now(), 40, Times(4, "IPPP"));
  Start();
  EXPECT_EQ(CountLog("Open failed: std::bad_alloc"), 1);
  EXPECT_FALSE(Give(frames[0]));
  EXPECT_FALSE(host->Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::FullConfiguration({camera})));
  drives.fails = false;
  host->Open();
  host->Open();
  EXPECT_EQ(CountLog("Open failed: the plug-in is already open"), 1);
  Configure({camera});
  GiveAll(frames);
  Finish();
  ExpectRecorded(camera, std::span(frames).first(12));
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

}  // namespace
}  // namespace plugintest
