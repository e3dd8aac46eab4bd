#include "media/PSFile.h"

#include <boost/filesystem.hpp>
#include <cerrno>

#include "tests/media/PSFileFixture.h"

namespace qv::kelvo {
namespace {

// The example at the end of docs/media-format.md.
TEST_F(PSFileTest, WritesTheDocumentedExample) {
  info.fileInput[0] = 0;
  ASSERT_EQ(Create(), kPsOk);
  const std::string userData("\x01\x02\x03", 3);
  PSFrame first = Frame(0, kFrameI, 0, "ABC");
  first.flags = 0x80;
  first.userData = AsBytes(userData).data();
  first.userDataSize = 3;
  EXPECT_EQ(file.WriteFrame(first), kPsOk);
  EXPECT_EQ(file.WriteFrame(Frame(0, kFrameP, 40, "")), kPsOk);
  file.Close();

  EXPECT_EQ(HexOf(kMedia, 1978, 64),
            "00 00 01 E0 00 3A 80 C1 1B 39 8F 4D 10 01 39 8F 4D 10 01 0F 8F FF FF FF 80 08 40 9D "
            "C0 D9 CF 32 01 03 01 01 41 42 43 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00");
  EXPECT_EQ(HexOf(kMedia, 2042, 40),
            "00 00 01 E0 00 1A 80 C1 17 39 8F 4D 2C 21 39 8F 4D 2C 21 0F 8B 80 08 40 80 08 20 1E "
            "C0 C0 CF 32");
  EXPECT_EQ(HexOf(kIndex, 0, 96),
            "01 00 00 00 40 00 00 00 20 00 00 00 20 00 00 00 20 00 00 00 02 00 00 00 CF 32 CF 32 "
            "00 14 3E 03 28 14 3E 03 10 00 00 00 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 "
            "02 00 00 00 00 00 00 00 01 00 00 00 CF 32 CF 32 00 14 3E 03 28 14 3E 03 00 80 00 00 "
            "00 00 00 00");
  EXPECT_EQ(HexOf(kIndex, 1088, 96),
            "00 00 9D C0 02 00 CF 32 00 14 3E 03 00 00 00 00 FF FF FF FF 01 00 00 00 00 00 00 00 "
            "00 00 00 00 "
            "00 00 1E C0 01 00 CF 32 28 14 3E 03 02 00 00 00 00 00 00 00 FF FF FF FF 01 00 00 00 "
            "00 00 00 00 "
            "00 80 00 00 CF 32 CF 32 00 14 3E 03 00 14 3E 03 "
            "00 00 00 00 CF 32 CF 32 28 14 3E 03 28 14 3E 03");
  EXPECT_EQ(Read().runs.size(), 2u);
}

TEST_F(PSFileTest, FrameOrRunOfFramesCostsOneWriteOfEachFile) {
  ASSERT_EQ(Create(), kPsOk);
  const std::string payload(100, 'x');
  const auto writesFor = [&](std::uint16_t stream, UtcMs ms) {
    const std::size_t before = files.Calls(FileCall::WriteAt);
    EXPECT_EQ(file.WriteFrame(Frame(stream, kFrameI, ms, payload)), kPsOk);
    return files.Calls(FileCall::WriteAt) - before;
  };
  EXPECT_EQ(writesFor(0, 0), 2u);
  EXPECT_EQ(writesFor(0, 40), 2u);
  for (int i = 0; i < 31; ++i) EXPECT_EQ(writesFor(16, 41 + i), 2u);
  EXPECT_EQ(writesFor(0, 80), 2u) << "the link to it, what lies between and its record at once";
  for (int i = 0; i < 200; ++i) writesFor(16, 90 + i);
  EXPECT_EQ(writesFor(0, 300), 3u) << "the stream's last record is long past";
  EXPECT_EQ(HexOf(kIndex, 20, 4), "00 00 00 00");  // the head learns the count at the end

  const auto writesForRun = [&](int count, std::size_t size) {
    std::vector<PSFrame> run;
    for (int i = 0; i < count; ++i) {
      const auto stream = static_cast<std::uint16_t>(i % 3 == 0 ? 16 : i % 3);
      run.push_back(Frame(stream, kFrameI, 300 + i, std::string(size, 'y')));
    }
    std::size_t written = 0;
    const std::size_t before = files.Calls(FileCall::WriteAt);
    EXPECT_EQ(file.WriteFrames(run, written), kPsOk);
    EXPECT_EQ(written, run.size());
    return files.Calls(FileCall::WriteAt) - before;
  };
  EXPECT_EQ(writesForRun(64, 1000), 2u);
  EXPECT_EQ(writesForRun(65, 1000), 4u);
  EXPECT_EQ(writesForRun(3, 900'000), 4u) << "two megabytes at once";
  EXPECT_EQ(writesForRun(2, 3'000'000), 4u);
  file.Close();
  EXPECT_EQ(Read().frames.size(), 235u + 134u);  // the parser follows all links
  EXPECT_EQ(files.Calls(FileCall::ReadAt), 0u);
}

TEST_F(PSFileTest, RunThatIsCutShortEndsBehindItsLastWholeFrame) {
  constexpr std::size_t kWhole = 64;  // of a frame
  const struct {
    std::string suffix;
    int error;
    std::size_t shortBytes, written;
    int result;
  } rows[] = {{".ps", EIO, 0, 0, kPsWriteFailed},
              {".ps", 0, 3 * kWhole, 3, kPsWriteFailed},
              {".ps", 0, 4 * kWhole + 63, 4, kPsWriteFailed},
              {".psi", 0, 3 * 32 + 5, 0, kPsWriteFailed},
              {"none", 0, 0, 5, kPsBadArgument}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.suffix + ' ' + std::to_string(row.shortBytes));
    ASSERT_EQ(Create(), kPsOk);
    std::vector<PSFrame> run;
    for (int i = 0; i < 8; ++i) {
      run.push_back(Frame(i % 2 == 0 ? 0 : 16, kFrameI, 1500 * i, "payload"));
    }
    run[7].stream = 32;
    std::size_t written = 0;
    ASSERT_EQ(file.WriteFrames(std::span(run).first(2), written), kPsOk);
    files.ClearFaults();
    files.Set({FileCall::WriteAt, 1, 1, row.error, row.shortBytes, row.suffix});
    EXPECT_EQ(file.WriteFrames(std::span(run).subspan(2), written), row.result);
    EXPECT_EQ(written, row.written);
    EXPECT_EQ(file.GetFrameCount(kWholeFile), 2 + row.written);
    if (row.result == kPsWriteFailed) {
      EXPECT_EQ(file.WriteFrame(run[0]), kPsBadArgument) << "it takes no more";
    }
    file.Close();
    EXPECT_EQ(Read().frames.size(), 2 + row.written) << "a pair as if nothing had happened";
    files.ClearFaults();
  }
}

// Faults at every other call are tested through the plug-in.
TEST_F(PSFileTest, PathsWithoutRoomForTheIndexAreRefused) {
  EXPECT_EQ(IndexPath("/d/1530-10010100.ps"), "/d/1530-10010100.psi");
  // Characters are counted, not bytes.
  const std::string directory =
      tree.MakeDirectory(std::string(119, 'd') + "\xC3\xBC/" + std::string(80, 'e'));
  const auto characters = static_cast<std::size_t>(
      std::ranges::count_if(directory, [](char byte) { return (byte & 0xC0) != 0x80; }));
  for (const std::size_t length : {259, 260, 261}) {
    path = directory + std::string(length - characters, 'n');
    EXPECT_EQ(Create(), length < 260 ? kPsOk : kPsOpenFailed);
    EXPECT_EQ(files.OpenFiles(), length < 260 ? 2u : 0u);
    EXPECT_EQ(boost::filesystem::exists(path), length < 260);
    EXPECT_EQ(boost::filesystem::exists(path + 'i'), length < 260);
  }
}

TEST_F(PSFileTest, FailedCloseLeavesAPairThatIsGoodAndFailedPreallocationIsAFailedOpen) {
  for (const std::size_t call : {1, 2}) {  // of the close: runs and head
    ASSERT_EQ(Create(), kPsOk);
    for (int i = 0; i < 6; ++i) {
      ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 2000 * i, "x")), kPsOk);
    }
    files.Set({FileCall::WriteAt, call, 1, EIO, 0, ".psi"});
    file.Close();
    EXPECT_EQ(Read(testsupport::PsEnd::Unclosed).frames.size(), 6u) << "runs aren't records";
  }
  for (const std::size_t call : {1, 2}) {  // media and index
    files.ClearFaults();
    files.Fail(FileCall::SetSize, call, ENOSPC);
    EXPECT_EQ(Create(100'000), kPsOpenFailed);
    EXPECT_FALSE(file.IsWriting());
    EXPECT_EQ(files.OpenFiles(), 0u);
  }
}

TEST_F(PSFileTest, EncoderComesFromTheInputByteOfASingleInputFile) {
  for (const auto& [input, wanted] : {std::pair{0x7E, 2u}, {0x80, 1u}}) {
    info.fileInput[0] = static_cast<std::uint8_t>(input);
    ASSERT_EQ(Create(), kPsOk);
    PSFrame frame = Frame(0, kFrameI, 0, "x");
    frame.encoder = descriptors[0].encoder = 5;
    ASSERT_EQ(file.WriteFrame(frame), kPsOk);
    file.Close();
    EXPECT_EQ(Read().frames.at(0).encoder, wanted);
  }
}

TEST_F(PSFileTest, SizesPadToThirtyTwoAndStopAtTheLimits) {
  const std::string data(4'194'304, 'p');
  const struct {
    std::uint32_t payload;
    std::uint64_t user;
    int result;
    std::uint32_t total;
  } rows[] = {{0, 0, 0, 32},
              {29, 2, 0, 64},
              {30, 2, 0, 64},
              {0, 87, 0, 160},
              {0, 88, -1, 0},
              {0, std::uint64_t{1} << 63, -1, 0},
              {4'194'240, 0, 0, 4'194'272},
              {4'194'124, 87, 0, 4'194'272},
              {4'194'125, 87, -1, 0},
              {0xFFFFFFFF, 0, -1, 0}};
  for (const auto& row : rows) {
    ASSERT_EQ(Create(), kPsOk);
    PSFrame frame = Frame(0, kFrameI, 0, "");
    frame.payload = frame.userData = AsBytes(data).data();
    frame.payloadSize = row.payload;
    frame.userDataSize = row.user;
    EXPECT_EQ(file.WriteFrame(frame), row.result) << row.payload << ' ' << row.user;
    file.Close();
    const auto recording = Read();
    ASSERT_EQ(recording.frames.size(), row.result == 0 ? 1u : 0u);
    if (row.result != 0) continue;
    EXPECT_EQ(recording.frames[0].total, row.total);
    EXPECT_EQ(recording.frames[0].payload.size(), row.payload);
    EXPECT_EQ(recording.frames[0].userData.size(), row.user / 3 * 3);
  }
}

TEST_F(PSFileTest, RefusedFramesLeaveNoTrace) {
  EXPECT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "closed")), kPsBadArgument);
  ASSERT_EQ(Create(), kPsOk);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "x")), kPsOk);
  std::vector<PSFrame> bad(10, Frame(0, kFrameP, 40, "x"));
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
  for (const PSFrame& frame : bad) EXPECT_EQ(file.WriteFrame(frame), kPsBadArgument);
  PSFrame late = Frame(0, kFrameP, 0, "y");
  late.hour = 24;  // the overflow rule reads it as the next day
  EXPECT_EQ(file.WriteFrame(late), kPsOk);
  file.Close();
  const auto recording = Read();
  ASSERT_EQ(recording.frames.size(), 2u);
  EXPECT_EQ(recording.frames[1].groupFrame, 1u);
  EXPECT_EQ(recording.frames[1].ms, 86'400'000u + 400'000u);
}

TEST_F(PSFileTest, ReadyMadePacketsTakeOverTheirSlotKeepTheirTimeAndMustFit) {
  ASSERT_EQ(Create(), kPsOk);
  PSFrame frame = Frame(5, kFrameP, 0, "payload");
  frame.flags = 0x40;
  ASSERT_EQ(file.WriteFrame(frame), kPsOk);
  file.Close();
  const std::string media = tree.Read(kMedia).substr(1978);
  const std::vector made(AsBytes(media).begin(), AsBytes(media).end());  // 25 bytes of padding
  descriptors[2].channel = 4;
  descriptors[2].encoder = 1;
  ASSERT_EQ(Create(), kPsOk);
  const struct {
    std::uint32_t size;
    int padInfo, result;
  } rows[] = {{1, 0xC0, -1},  {31, 0xC1, -1}, {33, 0xC0, -1},
              {39, 0xD8, -1}, {64, 0xC1, -1}, {39, 0xF9, -1},  // not a pad count
              {64, 0xC0, 0},  {39, 0xD9, 0}};                  // as hosts give it
  for (const auto& row : rows) {
    auto bytes = made;
    bytes[29] = static_cast<std::byte>(row.padInfo);
    frame = {};
    frame.stream = 2;
    frame.flags = 0x3F;  // only the events count
    frame.packet = bytes.data();
    frame.size = row.size;
    EXPECT_EQ(file.WriteFrame(frame), row.result) << row.size << ' ' << row.padInfo;
  }
  std::vector<std::byte> large(4'194'304);
  for (const std::size_t size : {4'194'304, 4'194'271, 16, 0}) {
    EXPECT_EQ(file.WritePacket(std::span(large).first(size)), kPsBadArgument) << size;
  }
  auto final = made;
  EXPECT_EQ(file.WritePacket(final), kPsOk);
  file.Close();
  const auto recording = Read();
  ASSERT_EQ(recording.frames.size(), 3u);
  const auto& read = recording.frames[1];
  EXPECT_EQ(read.stream, 2u);
  EXPECT_EQ(read.type, 2u);
  EXPECT_EQ(read.flags, 0x60u);
  EXPECT_EQ(read.channel, 4u);
  EXPECT_EQ(read.encoder, 1u);
  EXPECT_EQ(read.timeMs, 1'750'000'000'000);
  EXPECT_EQ(std::string(read.payload.begin(), read.payload.end()), "payload");
  EXPECT_EQ(recording.frames[2].stream, 5u);
  std::copy_n(made.begin() + 21, 3, final.begin() + 21);
  EXPECT_EQ(final, made) << "it got its previous size only";

  ASSERT_EQ(Create(), kPsOk);  // the smallest and the largest
  final[29] = std::byte{0xC0};
  frame.packet = final.data();
  frame.size = 32;
  EXPECT_EQ(file.WriteFrame(frame), kPsOk);
  EXPECT_EQ(file.WritePacket(std::span(large).first(4'194'272)), kPsOk);
}

TEST_F(PSFileTest, CreateEmptiesWhatStoodThereAndClosesWhatWasOpen) {
  tree.Write(kMedia, std::string(9000, 'o'));
  tree.Write(kIndex, std::string(9000, 'o'));
  file.Close();  // harmless
  ASSERT_EQ(Create(), kPsOk);
  EXPECT_EQ(file.GetDiskSize(), 1978u + 1088u);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "x")), kPsOk);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 5000, "x")), kPsOk);
  EXPECT_EQ(file.GetDiskSize(), 1978u + 1088u + 2 * 64 + 2 * 32 + 16);  // one run has ended
  const std::string other = tree.Path("0641-100101FF.ps");
  ASSERT_EQ(file.Create(other, info, descriptors, 0), kPsOk);
  EXPECT_EQ(Read().frames.size(), 2u);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameP, 0, "y")), kPsOk);
  file.Close();
  EXPECT_FALSE(file.IsWriting());
  const auto second = testsupport::ReadPs(other);
  EXPECT_TRUE(second.faults.empty());
  EXPECT_EQ(second.frames.at(0).groupFrame, 1u);

  info.level = 1;  // leaves an open file that takes no frames
  EXPECT_EQ(Create(), kPsBadArgument);
  EXPECT_TRUE(file.IsWriting());
  EXPECT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "x")), kPsBadArgument);
}

TEST_F(PSFileTest, PreallocatedFilesAreCutAtTheirEnd) {
  const struct {
    std::uint64_t bytes, media, index;
  } rows[] = {{1, 4096, 4096},
              {8191, 4096, 4096},
              {1'000'000, 995'328, 4096},
              {20'971'519, 20'963'328, 4096},
              {20'971'520, 10'485'760, 10'485'760}};
  for (const auto& row : rows) {
    ASSERT_EQ(Create(row.bytes), kPsOk);
    EXPECT_EQ(boost::filesystem::file_size(path), row.media) << row.bytes;
    EXPECT_EQ(boost::filesystem::file_size(path + 'i'), row.index) << row.bytes;
    for (int i = 0; i < 300; ++i) {  // beyond what the small ones hold
      ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 2000 * i, std::string(50, 'x'))), kPsOk);
    }
    file.Close();
    EXPECT_EQ(Read().runs.size(), 300u);  // checks both sizes
  }
}

}  // namespace
}  // namespace qv::kelvo
