#include "media/PSFile.h"

#include <cerrno>

#include "tests/media/PSFileFixture.h"
#include "tests/support/FaultyFiles.h"

namespace qv::kelvo {
namespace {

using Notes = std::vector<std::string>;

// The example at the end of docs/media-format.md.
TEST_F(PSFileTest, WritesTheDocumentedExample) {
  info.fileInput[0] = 0;
  PSFile file(files);
  ASSERT_EQ(Create(file), kPsOk);
  const std::string userData("\x01\x02\x03", 3);
  PSFrame first = Frame(0, kFrameI, 0, "ABC");
  first.flags = 0x80;
  first.userData = AsBytes(userData).data();
  first.userDataSize = 3;
  EXPECT_EQ(file.WriteFrame(first), kPsOk);
  EXPECT_EQ(file.WriteFrame(Frame(0, kFrameP, 40, "")), kPsOk);
  file.Close();

  EXPECT_EQ(Media(1978, 64),
            "00 00 01 E0 00 3A 80 C1 1B 39 8F 4D 10 01 39 8F 4D 10 01 0F 8F FF FF FF 80 08 40 9D "
            "C0 D9 CF 32 01 03 01 01 41 42 43 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00");
  EXPECT_EQ(Media(2042, 40),
            "00 00 01 E0 00 1A 80 C1 17 39 8F 4D 2C 21 39 8F 4D 2C 21 0F 8B 80 08 40 80 08 20 1E "
            "C0 C0 CF 32");
  EXPECT_EQ(Index(0, 96),
            "01 00 00 00 40 00 00 00 20 00 00 00 20 00 00 00 20 00 00 00 02 00 00 00 CF 32 CF 32 "
            "00 14 3E 03 28 14 3E 03 10 00 00 00 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 "
            "02 00 00 00 00 00 00 00 01 00 00 00 CF 32 CF 32 00 14 3E 03 28 14 3E 03 00 80 00 00 "
            "00 00 00 00");
  EXPECT_EQ(Index(1088, 96),
            "00 00 9D C0 02 00 CF 32 00 14 3E 03 00 00 00 00 FF FF FF FF 01 00 00 00 00 00 00 00 "
            "00 00 00 00 "
            "00 00 1E C0 01 00 CF 32 28 14 3E 03 02 00 00 00 00 00 00 00 FF FF FF FF 01 00 00 00 "
            "00 00 00 00 "
            "00 80 00 00 CF 32 CF 32 00 14 3E 03 00 14 3E 03 "
            "00 00 00 00 CF 32 CF 32 28 14 3E 03 28 14 3E 03");
  EXPECT_EQ(Read().runs.size(), 2u);
}

TEST_F(PSFileTest, RecordsReachTheIndexBeforeTheirMedia) {
  PSFile file(files);
  ASSERT_EQ(Create(file), kPsOk);
  EXPECT_EQ(files.Take(), (Notes{"psi@0+1088", "ps@0+16", "ps@16+1962"}));
  const std::string payload(100, 'x');  // 32 + 100 + 28
  // One stream: a frame costs two calls, since its record and the link to it are neighbours.
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, payload)), kPsOk);
  EXPECT_EQ(files.Take(), (Notes{"psi@1088+32", "ps@1978+160"}));
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameP, 40, payload)), kPsOk);
  EXPECT_EQ(files.Take(), (Notes{"psi@1088+64", "ps@2138+160"}));
  // Several: what lies between the stream's last record and the new one goes along.
  ASSERT_EQ(file.WriteFrame(Frame(16, kFrameAudio, 41, payload)), kPsOk);
  EXPECT_EQ(files.Take(), (Notes{"psi@1152+32", "ps@2298+160"}));
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameP, 80, payload)), kPsOk);
  EXPECT_EQ(files.Take(), (Notes{"psi@1120+96", "ps@2458+160"}));
  // But not what is long past.
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(file.WriteFrame(Frame(16, kFrameAudio, 90 + i, "x")), kPsOk);
  }
  files.Take();
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameP, 200, "x")), kPsOk);
  EXPECT_EQ(files.Take(), (Notes{"psi@1184+32", "psi@4416+32", "ps@9018+64"}));
  EXPECT_EQ(Index(20, 4), "00 00 00 00");  // the head learns the count at the end
  file.Close();
  EXPECT_EQ(files.Take(), (Notes{"psi@4448+32", "psi@0+1088"}));
  EXPECT_EQ(Index(20, 4), "69 00 00 00");
  EXPECT_EQ(Read().frames.size(), 105u);  // the parser follows all links
}

// Faults at every other call are tested through the plug-in.
TEST_F(PSFileTest, FailedIndexWriteLeavesAPairThatIsGoodAndFailedPreallocationIsAFailedOpen) {
  FaultyFiles faulty(SystemPlatform().mediaFiles);
  PSFile file(faulty);
  ASSERT_EQ(Create(file), kPsOk);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "one")), kPsOk);
  faulty.Set({FileCall::WriteAt, 1, 1, 0, 40, ".psi"});  // link written, record torn
  EXPECT_EQ(file.WriteFrame(Frame(0, kFrameP, 40, "two")), kPsWriteFailed);
  EXPECT_EQ(file.WriteFrame(Frame(0, kFrameI, 80, "late")), kPsBadArgument);
  EXPECT_EQ(file.GetFrameCount(kWholeFile), 1u);
  file.Close();
  EXPECT_EQ(Read().frames.size(), 1u);  // a pair as if nothing had happened

  for (const std::size_t call : {1, 2}) {  // of the close: runs and head
    ASSERT_EQ(Create(file), kPsOk);
    for (int i = 0; i < 6; ++i) {
      ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 2000 * i, "x")), kPsOk);
    }
    faulty.Set({FileCall::WriteAt, call, 1, EIO, 0, ".psi"});
    file.Close();
    EXPECT_EQ(Read(testsupport::PsEnd::Unclosed).frames.size(), 6u) << "runs aren't records";
  }
  for (const std::size_t call : {1, 2}) {  // media and index
    faulty.ClearFaults();
    faulty.Fail(FileCall::SetSize, call, ENOSPC);
    EXPECT_EQ(Create(file, 100'000), kPsOpenFailed);
    EXPECT_FALSE(file.IsWriting());
    EXPECT_EQ(faulty.OpenFiles(), 0u);
  }
}

TEST_F(PSFileTest, EncoderComesFromTheInputByteOfASingleInputFile) {
  for (const auto& [input, wanted] : {std::pair{0x07, 3u}, {0x7E, 2u}, {0x80, 1u}, {0xFF, 1u}}) {
    info.fileInput[0] = static_cast<std::uint8_t>(input);
    PSFile file(files);
    ASSERT_EQ(Create(file), kPsOk);
    PSFrame frame = Frame(0, kFrameI, 0, "x");
    frame.encoder = 5;
    ASSERT_EQ(file.WriteFrame(frame), kPsOk);
    file.Close();
    const auto recording = Read();
    EXPECT_EQ(recording.fileInput, input);
    EXPECT_EQ(recording.frames.at(0).encoder, wanted) << input;
  }
}

TEST_F(PSFileTest, SizesPadToThirtyTwoAndStopAtTheLimits) {
  const std::string data(4'194'304, 'p');
  const struct {
    std::uint32_t payload;
    std::uint64_t user;
    int result;
    std::uint32_t total, pad;
  } rows[] = {{0, 0, 0, 32, 0},
              {31, 0, 0, 64, 1},
              {32, 0, 0, 64, 0},
              {29, 2, 0, 64, 1},
              {30, 2, 0, 64, 0},
              {0, 4, 0, 64, 27},
              {0, 87, 0, 160, 12},
              {0, 88, -1, 0, 0},
              {0, std::uint64_t{1} << 63, -1, 0, 0},
              {4'194'240, 0, 0, 4'194'272, 0},
              {4'194'241, 0, -1, 0, 0},
              {4'194'124, 87, 0, 4'194'272, 0},
              {4'194'125, 87, -1, 0, 0},
              {0xFFFFFFFF, 0, -1, 0, 0}};
  for (const auto& row : rows) {
    PSFile file(files);
    ASSERT_EQ(Create(file), kPsOk);
    files.Take();
    PSFrame frame = Frame(0, kFrameI, 0, "");
    frame.payload = frame.userData = AsBytes(data).data();
    frame.payloadSize = row.payload;
    frame.userDataSize = row.user;
    EXPECT_EQ(file.WriteFrame(frame), row.result) << row.payload << ' ' << row.user;
    if (row.result != 0) {
      EXPECT_EQ(files.Take(), Notes{});
    }
    file.Close();
    const auto recording = Read();
    ASSERT_EQ(recording.frames.size(), row.result == 0 ? 1u : 0u);
    if (row.result != 0) continue;
    EXPECT_EQ(recording.frames[0].total, row.total);
    EXPECT_EQ(recording.frames[0].payload.size(), row.payload);
    EXPECT_EQ(recording.frames[0].userData.size(), row.user / 3 * 3);
    EXPECT_EQ(Media(1978 + 29, 1), Hex(std::array{static_cast<std::byte>(0xC0 | row.pad)}));
  }
}

TEST_F(PSFileTest, RefusedFramesLeaveNoTrace) {
  PSFile file(files);
  EXPECT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "closed")), kPsBadArgument);
  ASSERT_EQ(Create(file), kPsOk);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "x")), kPsOk);
  files.Take();
  std::vector<PSFrame> bad(11, Frame(0, kFrameP, 40, "x"));
  bad[0].stream = 32;
  bad[1].stream = kWholeFile;
  bad[2].year = 1999;
  bad[3].month = 0;
  bad[4].day = 32;
  bad[5].hour = 27;  // no time stamp has room for it
  bad[6].millisecond = 0xFFFFFFFF;
  bad[7].payload = nullptr;
  bad[8].userDataSize = 3;
  bad[9].SetTime(-1);
  bad[10].hour = 26;
  bad[10].presentationOffset = 0xFFFF;
  bad[10].minute = 30;
  for (const PSFrame& frame : bad) EXPECT_EQ(file.WriteFrame(frame), kPsBadArgument);
  EXPECT_EQ(files.Take(), Notes{});
  EXPECT_EQ(file.GetFrameCount(kWholeFile), 1u);
  PSFrame late = Frame(0, kFrameP, 0, "y");
  late.hour = 24;  // the overflow rule reads it as the next day
  EXPECT_EQ(file.WriteFrame(late), kPsOk);
  file.Close();
  const auto recording = Read();
  ASSERT_EQ(recording.frames.size(), 2u);
  EXPECT_EQ(recording.frames[1].groupFrame, 1u);
  EXPECT_EQ(recording.frames[1].ms, 86'400'000u + 400'000u);
}

// Ready-made packets are frames of another file.
class PSFilePackets : public PSFileTest {
 protected:
  std::vector<std::byte> MakePacket(std::uint16_t stream, const std::string& payload) {
    PSFile file(files);
    EXPECT_EQ(Create(file), kPsOk);
    PSFrame frame = Frame(stream, kFrameP, 0, payload);
    frame.flags = 0x40;
    EXPECT_EQ(file.WriteFrame(frame), kPsOk);
    file.Close();
    const std::string media = tree.Read("0640-100101FF.ps").substr(1978);
    const ConstBytes bytes = AsBytes(media);
    return {bytes.begin(), bytes.end()};
  }
};

TEST_F(PSFilePackets, ReadyMadePacketTakesOverItsSlotAndKeepsItsTime) {
  std::vector<std::byte> packet = MakePacket(5, "payload");
  packet.resize(32 + 7);  // as a host gives it: without the padding
  descriptors[2].channel = 4;
  descriptors[2].encoder = 1;
  PSFile file(files);
  ASSERT_EQ(Create(file), kPsOk);
  ASSERT_EQ(file.WriteFrame(Frame(2, kFrameI, 9000, "before")), kPsOk);
  PSFrame frame;
  frame.stream = 2;
  frame.flags = 0x3F;  // only the events count
  frame.packet = packet.data();
  frame.size = static_cast<std::uint32_t>(packet.size());
  ASSERT_EQ(file.WriteFrame(frame), kPsOk);
  file.Close();
  const auto recording = Read();
  ASSERT_EQ(recording.frames.size(), 2u);
  const auto& read = recording.frames[1];
  EXPECT_EQ(read.stream, 2u);
  EXPECT_EQ(read.type, 2u);
  EXPECT_EQ(read.flags, 0x60u);
  EXPECT_EQ(read.channel, 4u);
  EXPECT_EQ(read.encoder, 1u);
  EXPECT_EQ(read.timeMs, 1'750'000'000'000);
  EXPECT_EQ(std::string(read.payload.begin(), read.payload.end()), "payload");
}

TEST_F(PSFilePackets, FinalPacketGetsOnlyItsPreviousSize) {
  std::vector<std::byte> packet = MakePacket(5, "payload");
  const std::vector<std::byte> given = packet;
  PSFile file(files);
  ASSERT_EQ(Create(file), kPsOk);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "x")), kPsOk);
  ASSERT_EQ(file.WritePacket(packet), kPsOk);
  file.Close();
  EXPECT_EQ(Hex(ConstBytes(packet).subspan(21, 3)), "80 08 40");
  std::copy_n(given.begin() + 21, 3, packet.begin() + 21);
  EXPECT_EQ(packet, given);
  EXPECT_EQ(Read().frames.at(1).stream, 5u);
}

TEST_F(PSFilePackets, PacketsThatDontFitAreRefused) {
  const std::vector<std::byte> packet = MakePacket(0, "payload");  // 64 bytes, 25 of them padding
  PSFile file(files);
  ASSERT_EQ(Create(file), kPsOk);
  files.Take();
  const struct {
    std::uint32_t size;
    int padInfo, result;
  } rows[] = {{1, 0xC0, -1},  {31, 0xC1, -1}, {33, 0xC0, -1},
              {39, 0xD8, -1}, {64, 0xC1, -1}, {39, 0xF9, -1},  // not a pad count
              {32, 0xC0, 0},  {64, 0xFF, 0},  {39, 0xD9, 0}};
  for (const auto& row : rows) {
    std::vector<std::byte> bytes(packet.begin(), packet.begin() + row.size);
    if (row.size > 29) bytes[29] = static_cast<std::byte>(row.padInfo);
    PSFrame frame;
    frame.packet = bytes.data();
    frame.size = row.size;
    EXPECT_EQ(file.WriteFrame(frame), row.result) << row.size << ' ' << row.padInfo;
    EXPECT_EQ(files.Take().empty(), row.result != 0);
  }
  std::vector<std::byte> large(4'194'304);
  EXPECT_EQ(file.WritePacket(large), kPsBadArgument);
  EXPECT_EQ(file.WritePacket(std::span(large).first(4'194'271)), kPsBadArgument);
  EXPECT_EQ(file.WritePacket(std::span(large).first(16)), kPsBadArgument);
  EXPECT_EQ(file.WritePacket({}), kPsBadArgument);
  EXPECT_EQ(files.Take(), Notes{});
  EXPECT_EQ(file.WritePacket(std::span(large).first(4'194'272)), kPsOk);
}

TEST_F(PSFileTest, CreateEmptiesWhatStoodThereAndClosesWhatWasOpen) {
  tree.Write("0640-100101FF.ps", std::string(9000, 'o'));
  tree.Write("0640-100101FF.psi", std::string(9000, 'o'));
  PSFile file(files);
  file.Close();  // harmless
  EXPECT_FALSE(file.IsWriting());
  ASSERT_EQ(Create(file), kPsOk);
  EXPECT_TRUE(file.IsWriting());
  EXPECT_EQ(file.GetDiskSize(), 1978u + 1088u);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "x")), kPsOk);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 5000, "x")), kPsOk);
  EXPECT_EQ(file.GetDiskSize(), 1978u + 1088u + 2 * 64 + 2 * 32 + 16);  // one run has ended
  const std::string other = tree.Path("0641-100101FF.ps");
  ASSERT_EQ(file.Create(other, info, descriptors, 0), kPsOk);
  EXPECT_EQ(Read().frames.size(), 2u);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameP, 0, "y")), kPsOk);
  file.Close();
  const auto second = testsupport::ReadPs(other);
  EXPECT_TRUE(second.faults.empty());
  EXPECT_EQ(second.frames.at(0).groupFrame, 1u);

  info.level = 1;  // leaves an open file that takes no frames
  EXPECT_EQ(Create(file), kPsBadArgument);
  EXPECT_TRUE(file.IsWriting());
  EXPECT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "x")), kPsBadArgument);
}

TEST_F(PSFileTest, PreallocatedFilesAreCutAtTheirEnd) {
  const struct {
    std::uint64_t bytes, media, index;
  } rows[] = {{1, 4096, 4096},
              {8191, 4096, 4096},
              {8192, 4096, 4096},
              {1'000'000, 995'328, 4096},
              {20'971'519, 20'963'328, 4096},
              {20'971'520, 10'485'760, 10'485'760}};
  for (const auto& row : rows) {
    PSFile file(files);
    ASSERT_EQ(Create(file, row.bytes), kPsOk);
    EXPECT_EQ(file.GetDiskSize(), row.media + row.index) << row.bytes;
    const Notes notes = files.Take();
    EXPECT_EQ(notes.at(0), "ps=" + std::to_string(row.media));
    EXPECT_EQ(notes.at(1), "psi=" + std::to_string(row.index));
    for (int i = 0; i < 300; ++i) {  // beyond what the small ones hold
      ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 2000 * i, std::string(50, 'x'))), kPsOk);
    }
    file.Close();
    const auto recording = Read();  // checks both sizes
    EXPECT_EQ(recording.frames.size(), 300u);
    EXPECT_EQ(recording.runs.size(), 300u);
    files.Take();
  }
}

TEST_F(PSFileTest, RefusesFramesBeyondThePlacesThatARecordCanName) {
  PSFile file(files);
  ASSERT_EQ(Create(file), kPsOk);
  files.swallow = true;
  const std::string payload(4'194'240, 'x');  // frames of 4,194,272 bytes
  const PSFrame frame = Frame(0, kFrameI, 0, payload);
  std::uint32_t written = 0;
  int result = kPsOk;
  while (written < 40'000 && (result = file.WriteFrame(frame)) == kPsOk) ++written;
  EXPECT_EQ(result, kPsBadArgument);
  EXPECT_EQ(written, 32'769u);  // the last one begins below 2^32 * 32
}

}  // namespace
}  // namespace qv::kelvo
