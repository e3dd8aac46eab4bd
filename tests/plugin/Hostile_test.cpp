#include <cstring>
#include <functional>

#include "tests/plugin/Hostile.h"

namespace plugintest {
namespace {

using HostileXml = SeamTest;
using HostileFrames = SeamTest;

// The five ways by which a message can come.
enum class Way { Configuration, System, Action, Ptz, Other };
constexpr Way kWays[] = {Way::Configuration, Way::System, Way::Action, Way::Ptz, Way::Other};

bool Send(SimHost& host, Way way, void* payload, std::uint32_t length) {
  if (way == Way::Configuration || way == Way::System) {
    KelvoIoctlBlock block{};
    KelvoIoctlReply reply{};
    block.Operation = way == Way::Configuration ? KELVO_IOCTL_CONFIGURATION : KELVO_IOCTL_SYSTEM;
    block.Payload = payload;
    block.Length = length;
    host.Raw().IOCTL(&block, &reply);
    return reply.Accepted == 1;
  }
  KelvoWriteBlock block{};
  KelvoWriteReply reply{};
  block.Class = way == Way::Action ? KELVO_WRITE_ACTION : way == Way::Ptz ? KELVO_WRITE_PTZ : 0u;
  block.Payload = payload;
  block.Length = length;
  host.Raw().Write(&block, &reply);
  return reply.Accepted == 1;
}

TEST_F(HostileXml, NoMessageStopsTheRecording) {
  const auto camera = Camera();
  Start({camera});
  std::vector<Frame> given;
  for (const auto& message : HostileMessages()) {
    for (const Way way : kWays) {
      auto* payload = host->NewBuffer(message);
      const auto length = static_cast<std::uint32_t>(message.size());
      if (!Send(*host, way, payload, length)) host->Release(payload);
      const auto group = MakeFrames(VideoProvider(camera), Now(), 40, "IPB", 300);
      GiveAll(group);
      given.insert(given.end(), group.begin(), group.end());
      bundle.clock.Advance(200);
    }
  }
  Finish();
  ExpectFrames(FramesOf(RecordingsOf(camera), kVideoSlot),
               std::span(given).first(given.size() - 3));
  // Text that isn't XML is told, each time.
  EXPECT_GE(CountLog("skipping msg - "), 5);
}

TEST_F(HostileXml, BlocksWithoutPayloadAreHarmless) {
  Start();
  for (const Way way : kWays) {
    for (const std::uint32_t length : {0u, 1u, 100u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
      Send(*host, way, nullptr, length);
    }
    auto* payload = host->NewBuffer("");
    if (!Send(*host, way, payload, 0)) host->Release(payload);
  }
  Sync();
  EXPECT_EQ(host->Outstanding(), 0);
}

// Each case hands in one frame; good frames before and after it must all be recorded, the later
// ones in the next file if the bad one has ended the file that it came to.
struct BadFrame {
  std::function<void(std::string& payload, KelvoFrameHeader& header)> spoil;
  std::uint32_t subCode = 0;
  std::uint32_t claimedLength = 0;  // 0: the true one
};

std::string PlainPacket() {
  std::string packet("\0\0\1\xE0\0\0\x80\xC1\x17", 9);
  packet.resize(192, '\1');
  packet[19] = 0x0F;
  packet[20] = static_cast<char>(0x8B);
  packet[27] = 0x1D;
  packet[28] = static_cast<char>(0xC0);
  packet[29] = static_cast<char>(0xC0);
  return packet;
}

std::vector<BadFrame> BadFrames() {
  std::vector<BadFrame> list = {{[](auto& payload, auto&) { payload.clear(); }},
                                {[](auto&, auto&) {}, 0, 0xFFFFFFFFu},
                                {[](auto&, auto&) {}, 0, 0xFFFFFFE0u},
                                {[](auto&, auto&) {}, 0, 4'194'272u - 32 + 1},
                                {[](auto&, auto& header) { header.FrameType = 200; }},
                                {[](auto&, auto& header) { header.FrameType = 4; }},
                                {[](auto&, auto& header) { header.FrameFlags = 0xFF; }},
                                {[](auto&, auto& header) { header.Milliseconds = 0xFFFF; }},
                                {[](auto&, auto& header) { header.Seconds = 0; }},
                                {[](auto&, auto& header) { header.Seconds = 0xFFFFFFFF; }},
                                {[](auto&, auto& header) { header.ExtensionLength = 0xFFFFFFFF; }}};
  for (const std::uint32_t length : {0u, 1u, 2u, 3u, 4u, 27u, 28u, 29u, 31u}) {
    list.push_back({[length](auto& payload, auto&) { payload = PlainPacket().substr(0, length); },
                    KELVO_WRITE_SUB_PES});
  }
  const struct {
    std::size_t at;
    int value;
  } lies[] = {{0, 1},  {2, 0},  {3, 0x00},  {3, 0xC5},  {4, 0xFF}, {8, 0},     {8, 0xFF},
              {9, 0},  {14, 0}, {20, 0},    {20, 0xFF}, {21, 0},   {24, 0xFF}, {27, 0},
              {28, 0}, {29, 0}, {29, 0xDF}, {29, 0xC1}, {30, 0xFF}};
  for (const auto& lie : lies) {
    list.push_back({[lie](auto& payload, auto&) {
                      payload = PlainPacket();
                      payload[lie.at] = static_cast<char>(lie.value);
                    },
                    KELVO_WRITE_SUB_PES});
  }
  list.push_back(
      {[](auto& payload, auto&) { payload = PlainPacket(); }, KELVO_WRITE_SUB_PES, 0xFFFFFFE0u});
  return list;
}

TEST_F(HostileFrames, GoodFramesBeforeAndAfterAreRecorded) {
  const auto camera = Camera();
  const auto idle = Camera(1, kOnAlarm);  // drops them
  Start({camera, idle});
  std::vector<Frame> given;
  const auto giveGroup = [&] {
    const auto group = MakeFrames(VideoProvider(camera), Now(), 40, "IPBP", 300);
    GiveAll(group);
    given.insert(given.end(), group.begin(), group.end());
  };
  for (const auto& bad : BadFrames()) {
    giveGroup();
    bundle.clock.Advance(200);
    giveGroup();  // settles the first one
    auto frame = MakeFrame(VideoProvider(camera), KELVO_FRAME_I, Now() + 160, 200, 99);
    bad.spoil(frame.payload, frame.header);
    auto* buffer = host->NewBuffer(frame.payload);
    const auto length = bad.claimedLength != 0 ? bad.claimedLength
                                               : static_cast<std::uint32_t>(frame.payload.size());
    host->AddReference(buffer);
    for (const auto& target : {camera, idle}) {
      EXPECT_TRUE(
          host->WriteFrame(VideoProvider(target), frame.header, buffer, length, bad.subCode));
    }
    bundle.clock.Advance(200);
    giveGroup();
    // Time for the next file, for it to start with what is undecided.
    Tick(6 * 60'000);
  }
  giveGroup();
  bundle.clock.Advance(200);
  giveGroup();
  Finish();
  // The last group is undecided. Spoilt frames may be there, too; only the good ones are compared.
  given.resize(given.size() - 4);
  std::vector<PsRecording> recordings;
  for (const auto& file : tree.FilesEndingIn(".ps")) {
    recordings.push_back(testsupport::ReadPs(tree.Path(file), PsEnd::Unclosed));
  }
  std::size_t next = 0;
  for (const auto& recording : recordings) {
    for (const auto& frame : recording.frames) {
      if (next < given.size() && frame.timeMs == TimeOf(given[next]) &&
          frame.payload.size() == given[next].payload.size()) {
        ExpectFrames({&frame}, std::span(given).subspan(next, 1));
        ++next;
      }
    }
  }
  EXPECT_EQ(next, given.size()) << "frame " << next << " isn't where it belongs";
}

}  // namespace
}  // namespace plugintest
