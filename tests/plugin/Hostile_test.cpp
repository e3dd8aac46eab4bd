#include <cerrno>
#include <ctime>
#include <fstream>

#include "hostkit/StorageXml.h"
#include "tests/plugin/PluginFixture.h"

// What a host should never send, and what that costs the process.
namespace plugintest {
namespace {

// Highest resident size so far, in MiB; 0 where the system doesn't tell.
std::size_t HighWaterMiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) / 1024;
  }
  return 0;
}

class Hostile : public SeamTest {
 protected:
  // Checks what the test has used of the process.
  void ExpectUsed(std::size_t mostMiB, std::clock_t mostSeconds) {
    // Sanitizers multiply both.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    mostMiB *= 10;
    mostSeconds *= 10;
#endif
    if (memory == 0) return;
    EXPECT_LT(HighWaterMiB() - memory, mostMiB);
    EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, mostSeconds);
  }

  // Gives a group of good frames, which settles the one before.
  void GiveGroup(const std::string& kinds) {
    const auto group = MakeFrames(VideoProvider(camera), Now(), 40, kinds, 300);
    GiveAll(group);
    given.insert(given.end(), group.begin(), group.end());
    bundle.clock.Advance(200);
  }

  const CameraConfig camera = Camera();
  std::vector<Frame> given;

 private:
  const std::size_t memory = HighWaterMiB();
  const std::clock_t begin = std::clock();
};

// `depth` elements one in the other below the root, closed if `closed`.
std::string Nested(int depth, bool closed) {
  std::string text = "<qDVR>";
  text += Times(depth, "<Devices>");
  if (closed) text.append(Times(depth, "</Devices>")).append("</qDVR>");
  return text;
}

// Messages that a host should never send. None of them names provider 0x00110000, whose camera the
// tests keep recording.
std::vector<std::string> HostileMessages() {
  std::string attributes = "<qDVR ";
  for (int n = 0; attributes.size() < 1'000'000; ++n) {
    attributes.append("A").append(std::to_string(n)).append("='0123456789' ");
  }
  std::vector<std::string> list = {std::string(1000, '\0'),
                                   "<qDVR><Devices ID='1114112'><Dev",
                                   "<qDVR A='&#xFFFFFFFFFF;&#0;&lt;&nothing;&'/>",
                                   "<qDVR><A></B></qDVR></qDVR>",
                                   "<qDVR \xFF\xFE='\x80\xC0\xAF'><\xF5/></qDVR>",
                                   std::string("\xFF\xFE<\0q\0D\0V\0R\0/\0>\0", 16),
                                   "<%s%n%s%n qDVR='%s%n'/>",
                                   attributes + "/>",
                                   Nested(100'000, true),
                                   Nested(100'000, false)};
  // Good ones, of which one value after the other is changed.
  auto other = Camera(1, kOnMotion);
  other.provider = 0x00120000;
  other.context = 1;
  other.audio = true;
  other.expirationType = other.expirationDays = 1;
  const std::string good[] = {
      hostkit::FullConfiguration({other}, 5),
      hostkit::AlarmAction(other, true, 7, true, 1'750'000'000, 1),
      hostkit::PtzMessage(other, 17),
      hostkit::StorageDelta({1000, 60, true, 3, {{"none", 50, true}}}),
      hostkit::WithBookmarks("<qDVR/>", {{"case", "mark", 1, 2, {other}}}),
      R"(<qDVR><Devices ID="1179648"><Device Number="1"><Video><Input Number="0"/></Video><Codec>
         <Encoder Number="0"><Sequence Count="2"><Entry Position="0" Input="0" Page="0"/><Entry
         Position="1" Input="1" Page="0"/></Sequence><Channel Number="0" Standard="2"/></Encoder>
         <Encoder Number="0"/></Codec></Device></Devices><Devices ID="1179648"/></qDVR>)"};
  for (const auto& message : good) {
    for (auto at = message.find("=\""); at != message.npos; at = message.find("=\"", at + 2)) {
      const auto rest = message.substr(message.find('"', at + 2));
      for (const char* value : {"-1", "16", "32", "64", "256", "2147483647", "-2147483648",
                                "99999999999999999999", "x"}) {
        list.push_back(message.substr(0, at + 2) + value + rest);
      }
    }
  }
  return list;
}

TEST_F(Hostile, NoMessageStopsTheRecording) {
  Start({camera});
  for (const auto& message : HostileMessages()) {
    for (const std::uint32_t writeClass : {KELVO_WRITE_ACTION, KELVO_WRITE_PTZ, 0u}) {
      host->WriteXml(writeClass, message);
      GiveGroup("IPB");
    }
    for (const std::uint32_t operation : {KELVO_IOCTL_CONFIGURATION, KELVO_IOCTL_SYSTEM}) {
      host->Ioctl(operation, message);
      GiveGroup("IPB");
    }
  }
  for (const std::uint32_t length : {0u, 1u, 100u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    for (const std::uint32_t writeClass : {KELVO_WRITE_ACTION, KELVO_WRITE_PTZ, 0u}) {
      KelvoWriteBlock block{};
      KelvoWriteReply reply{};
      block.Class = writeClass;
      block.Length = length;  // without a payload
      host->Raw().Write(&block, &reply);
    }
  }
  Finish();
  ExpectRecorded(camera, std::span(given).first(given.size() - 3));
  // Text that isn't XML is told, each time.
  EXPECT_GE(CountLog("skipping msg - "), 5);
  ExpectUsed(300, 10);
}

TEST_F(Hostile, TenThousandDevicesWithFewDescriptors) {
  std::string devices = "<qDVR><Devices ID='1179648'>";
  for (int n = 0; n < 10'000; ++n) {
    devices += "<Device Number='" + std::to_string(n) +
               "'><Video><Input Number='0' Name='n'><Schedule><Entry FirstHour='0' LastHour='167' "
               "Record='2'/></Schedule></Input></Video><Codec><Encoder Number='0'><Channel "
               "Number='0' Standard='2' Width='64' Height='64'/></Encoder></Codec></Device>";
  }
  Start({camera});
  bundle.files.FailForGood(qv::kelvo::FileCall::Open, 200, EMFILE);
  host->Ioctl(KELVO_IOCTL_CONFIGURATION, devices + "</Devices></qDVR>");
  Sync();
  GiveGroup("IPB");
  GiveGroup("IPB");
  // They go as they came.
  host->Ioctl(KELVO_IOCTL_CONFIGURATION, "<qDVR><Devices ID=\"1179648\"/></qDVR>");
  bundle.clock.Advance(1000);
  GiveGroup("IPB");
  GiveGroup("IPB");
  Finish();
  ExpectRecorded(camera, std::span(given).first(9), kVideoSlot, PsEnd::Unclosed);
  ExpectUsed(600, 20);
}

// Each of them is handed in between good frames.
struct BadFrame {
  Frame frame;
  std::uint32_t subCode = 0;
  std::uint32_t claimedLength = 0;  // 0: the true one
};

std::vector<BadFrame> BadFrames(std::int64_t timeMs) {
  const auto good = MakeFrame(0, KELVO_FRAME_I, timeMs, 200, 99);
  std::vector<BadFrame> list(11, {good});
  list[0].frame.payload.clear();
  list[1].claimedLength = 0xFFFFFFFFu;
  list[2].claimedLength = 0xFFFFFFE0u;
  list[3].claimedLength = 4'194'272u - 32 + 1;
  list[4].frame.header.FrameType = 200;
  list[5].frame.header.FrameType = 4;
  list[6].frame.header.FrameFlags = 0xFF;
  list[7].frame.header.Milliseconds = 0xFFFF;
  list[8].frame.header.Seconds = 0;
  list[9].frame.header.Seconds = 0xFFFFFFFF;
  list[10].frame.header.ExtensionLength = 0xFFFFFFFF;
  // Packets that are too short, lie about themselves or about their length.
  std::string packet("\0\0\1\xE0\0\0\x80\xC1\x17", 9);
  packet.resize(192, '\1');
  packet[19] = 0x0F;
  packet[20] = '\x8B';
  packet[27] = 0x1D;
  packet[28] = packet[29] = '\xC0';
  const auto add = [&](const std::string& payload) {
    list.push_back({good, KELVO_WRITE_SUB_PES});
    list.back().frame.payload = payload;
  };
  for (const std::size_t length : {0, 1, 2, 3, 4, 27, 28, 29, 31}) add(packet.substr(0, length));
  const struct {
    std::size_t at;
    int value;
  } lies[] = {{0, 1},  {2, 0},  {3, 0x00},  {3, 0xC5},  {4, 0xFF}, {8, 0},     {8, 0xFF},
              {9, 0},  {14, 0}, {20, 0},    {20, 0xFF}, {21, 0},   {24, 0xFF}, {27, 0},
              {28, 0}, {29, 0}, {29, 0xDF}, {29, 0xC1}, {30, 0xFF}};
  for (const auto& lie : lies) {
    add(packet);
    list.back().frame.payload[lie.at] = static_cast<char>(lie.value);
  }
  add(packet);
  list.back().claimedLength = 0xFFFFFFE0u;
  return list;
}

TEST_F(Hostile, GoodFramesBeforeAndAfterBadOnesAreRecorded) {
  const auto idle = Camera(1, kOnAlarm);  // drops them
  Start({camera, idle});
  for (std::size_t n = 0; n < BadFrames(0).size(); ++n) {
    GiveGroup("IPBP");
    GiveGroup("IPBP");
    const auto [frame, subCode, claimedLength] = BadFrames(Now() - 40).at(n);
    auto* buffer = host->NewBuffer(frame.payload);
    const auto length =
        claimedLength != 0 ? claimedLength : static_cast<std::uint32_t>(frame.payload.size());
    host->AddReference(buffer);
    for (const auto& target : {camera, idle}) {
      EXPECT_TRUE(host->WriteFrame(VideoProvider(target), frame.header, buffer, length, subCode));
    }
    GiveGroup("IPBP");
    // Time for the next file, for it to start with what is undecided.
    Tick(6 * 60'000);
  }
  GiveGroup("IPBP");
  GiveGroup("IPBP");
  Finish();
  // The last group is undecided. Spoilt frames may be there, too; only the good ones are compared.
  given.resize(given.size() - 4);
  std::size_t next = 0;
  for (const auto& file : tree.FilesEndingIn(".ps")) {
    for (const auto& frame : testsupport::ReadPs(tree.Path(file), PsEnd::Unclosed).frames) {
      if (next == given.size() || frame.timeMs != TimeOf(given[next]) ||
          frame.payload.size() != given[next].payload.size()) {
        continue;
      }
      ExpectFrames({&frame}, std::span(given).subspan(next, 1));
      ++next;
    }
  }
  EXPECT_EQ(next, given.size()) << "frame " << next << " isn't where it belongs";
}

}  // namespace
}  // namespace plugintest
