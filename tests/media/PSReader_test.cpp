#include "media/PSReader.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <map>
#include <random>

#include "tests/media/PSFileFixture.h"

namespace qv::kelvo {
namespace {

constexpr UtcMs kStart = 1'750'000'000'000;

// A frame as the second reader tells it.
struct Made : testsupport::PsFrame {
  std::uint32_t ordinal = 0;  // within its stream
};

class PSReaderTest : public PSFileTest {
 protected:
  // Frames of streams 0, 3 and 16 in no particular order, with gaps and changes of flags.
  void MakeRecording(std::size_t count) {
    ASSERT_EQ(Create(), kPsOk);
    AddFrames(count);
    EXPECT_EQ(file.GetFrameCount(kWholeFile), count);
    EXPECT_EQ(file.GetFrameCount(3), written[3]);
    const std::size_t clips = file.ClipCount();
    file.Close();
    // It compares links, groups, counts and runs with the frames.
    model = Model(testsupport::PsEnd::Closed);
    EXPECT_EQ(model.size(), count);
    EXPECT_EQ(runs.size(), clips);
  }
  std::vector<Made> Model(testsupport::PsEnd end) {
    const auto recording = Read(end);
    runs = recording.runs;
    std::vector<Made> made;
    std::map<unsigned, std::uint32_t> before;
    for (const auto& frame : recording.frames) made.push_back({frame, before[frame.stream]++});
    return made;
  }

  void AddFrames(std::size_t count) {
    static constexpr std::uint16_t kStreams[] = {0, 0, 3, 16};
    static constexpr UtcMs kGaps[] = {1000, 1001, 86'400'040};
    while (count-- > 0) {
      const std::uint16_t stream = kStreams[random() % 4];
      const std::uint32_t before = written[stream]++;
      const int type = stream == 16 ? 0 : before % 5 == 0 ? 1 : before % 5 < 3 ? 2 : 3;
      now += random() % 20 == 0 ? kGaps[random() % 3] : random() % 50 == 0 ? -3 : 40;
      PSFrame frame = Frame(stream, static_cast<std::uint16_t>(type), now, Noise(300));
      frame.flags = static_cast<std::uint8_t>(before / 30 % 8 << 5);
      const std::string metadata = Noise(88);
      frame.userData = AsBytes(metadata).data();
      frame.userDataSize = metadata.size();
      ASSERT_EQ(file.WriteFrame(frame), kPsOk);
    }
  }
  std::string Noise(std::size_t below) {
    std::string noise(random() % below, ' ');
    for (char& c : noise) c = static_cast<char>(random());
    return noise;
  }

  void Patch(const char* name, std::size_t at, const std::string& bytes) {
    std::string content = tree.Read(name);
    content.replace(at, bytes.size(), bytes);
    tree.Write(name, content);
  }

  void ExpectFrame(PSReadFrame& frame, int result, const Made& wanted) {
    ASSERT_EQ(result, kPsOk);
    EXPECT_EQ(frame.stream, wanted.stream);
    EXPECT_EQ(frame.frameType, wanted.type);
    EXPECT_EQ(frame.flags, wanted.flags);
    EXPECT_EQ(frame.groupFrame, wanted.groupFrame);
    EXPECT_EQ(frame.Time(), wanted.timeMs);
    EXPECT_EQ(FrameTicks(frame, 90'900), wanted.timeMs * 90 + wanted.timeMs / 1000 * 900);
    EXPECT_EQ(Hex(ConstBytes(userData).first(frame.userDataSize)),
              Hex(std::as_bytes(std::span(wanted.userData))));
    const std::size_t at = std::to_integer<std::size_t>(packet[8]) + 9;
    ASSERT_LE(at, frame.size);
    EXPECT_TRUE(std::ranges::equal(ConstBytes(packet).subspan(at, frame.size - at),
                                   std::as_bytes(std::span(wanted.payload))));
  }
  PSReadFrame Ask(std::uint16_t stream, std::uint32_t index) {
    PSReadFrame frame;
    frame.stream = stream;
    frame.index = index;
    frame.packet = packet;
    frame.userData = userData;
    return frame;
  }
  [[nodiscard]] std::vector<Made> Chosen(std::uint32_t mask) const {
    std::vector<Made> chosen = model;
    std::erase_if(chosen, [mask](const Made& m) { return (mask >> m.stream & 1u) == 0; });
    return chosen;
  }

  // Everything the reader offers against the model, by steps and jumps.
  void ExpectAll() {
    const auto count = static_cast<std::uint32_t>(model.size());
    ASSERT_EQ(reader.GetFrameCount(kWholeFile), count);
    for (const std::uint32_t mask : {1u, 1u << 3, 1u << 16, 9u, 0x10009u, 0xFFFFFFFFu}) {
      SCOPED_TRACE(mask);
      const std::vector<Made> chosen = Chosen(mask);
      const auto size = static_cast<std::uint32_t>(chosen.size());
      ASSERT_EQ(reader.CountFrames(mask), size);
      std::vector<std::uint32_t> order;
      for (std::uint32_t n = 0; n < 2 * size; ++n) order.push_back(n < size ? n : 2 * size - n - 1);
      for (int n = 0; n < 40; ++n) order.push_back(static_cast<std::uint32_t>(random() % size));
      order.push_back(order.back());  // where it stands already
      for (const std::uint32_t position : order) {
        PSReadFrame frame = Ask(0, position);
        ExpectFrame(frame, reader.NextFrame(frame, mask), chosen[position]);
        EXPECT_EQ(frame.index, chosen[position].ordinal);
        if (HasFailure()) return;
      }
      PSReadFrame behind = Ask(0, size);
      EXPECT_EQ(reader.NextFrame(behind, mask), kPsBadArgument);
    }
    for (int n = 0; n < 200; ++n) {
      const Made& wanted = model[n < 100 ? n % count : random() % count];
      PSReadFrame frame = Ask(static_cast<std::uint16_t>(wanted.stream), wanted.ordinal);
      ExpectFrame(frame, reader.GetFrame(frame), wanted);
    }
    for (std::uint32_t n = 0; n < count; n += 17) {
      PSReadFrame frame = Ask(kWholeFile, n);
      ExpectFrame(frame, reader.GetFrame(frame), model[n]);
      EXPECT_EQ(reader.TestFrameStart(n), kPsOk);
    }
    PSReadFrame behind = Ask(0, reader.GetFrameCount(0));
    EXPECT_EQ(reader.GetFrame(behind), kPsBadArgument);
  }

  void ExpectRuns() {
    PSRun run;
    for (std::uint32_t n = 0; n < runs.size(); ++n) {
      ASSERT_EQ(reader.GetRun(n, run), kPsOk) << n;
      EXPECT_TRUE(run.stream == runs[n].stream && run.flags == runs[n].flags);
      EXPECT_EQ(run.first, (PackedTime{runs[n].firstDate, runs[n].firstMs}));
      EXPECT_EQ(run.last, (PackedTime{runs[n].lastDate, runs[n].lastMs}));
    }
    EXPECT_NE(reader.GetRun(static_cast<std::uint32_t>(runs.size()), run), kPsOk);
  }

  std::mt19937 random{1};
  UtcMs now = 0;
  std::array<std::uint32_t, kStreamCount> written{};
  std::vector<Made> model;
  std::vector<testsupport::PsRun> runs;
  PSReader reader{SystemPlatform().mediaFiles};
  std::vector<std::byte> packet = std::vector<std::byte>(4'194'303);
  std::array<std::byte, 128> userData{};
};

TEST_F(PSReaderTest, GivesBackEveryFrameFromWhateverIsLeftOfTheIndex) {
  MakeRecording(700);
  const std::string index = tree.Read(kIndex);
  const auto patched = [&](std::size_t at, const std::string& bytes) {
    return std::string(index).replace(at, bytes.size(), bytes);
  };
  const std::string unclosed = patched(20, std::string(4, '\0'));
  const std::string records = unclosed.substr(0, 1088 + 700 * 32);
  const std::pair<const char*, std::string> cases[] = {
      {"whole", index},
      {"never closed", unclosed},
      {"never closed, runs cut", records},
      {"never closed, preallocated", records + std::string(9999, '\0')},
      {"run table cut", index.substr(0, index.size() - 5)},
      {"stale count", patched(64, "\x05")},
      {"count beyond the file", patched(20, "\xFF\xFF\xFF\x7F")},
      {"missing", ""}};
  for (const auto& [name, content] : cases) {
    SCOPED_TRACE(name);
    reader.Close();
    tree.Write(kIndex, content);
    if (content.empty()) boost::filesystem::remove(tree.Path(kIndex));
    ASSERT_EQ(reader.Open(path), kPsOk);
    EXPECT_EQ(reader.HasIndex(), !content.empty());
    EXPECT_EQ(reader.WasRecovered(), !content.empty() && content != index);
    ExpectAll();
    if (content.empty()) runs.clear();  // told of files with an index only
    EXPECT_EQ(reader.GetRunCount(), runs.size());
    ExpectRuns();
  }
}

TEST_F(PSReaderTest, RefusesHeadsThatArentOnes) {
  MakeRecording(5);
  const std::string index = tree.Read(kIndex), media = tree.Read(kMedia);
  // Version, and sizes of the head, of stream and frame records, count of streams.
  for (const std::size_t at : {0, 4, 8, 12, 16}) {
    tree.Write(kIndex, index);
    Patch(kIndex, at, at == 0 ? std::string(4, '\0') : "\x41");
    EXPECT_EQ(reader.Open(path), kPsBadArgument) << at;
  }
  for (const std::size_t size : {0u, 63u, 64u, 1087u}) {
    tree.Write(kIndex, index.substr(0, size));
    EXPECT_EQ(reader.Open(path), kPsReadFailed) << size;
  }
  tree.Write(kIndex, index);
  for (const std::size_t size : {0u, 15u, 21u, 1977u}) {
    tree.Write(kMedia, media.substr(0, size));
    EXPECT_EQ(reader.Open(path), kPsReadFailed) << size;
  }
  boost::filesystem::remove(path);
  EXPECT_EQ(reader.Open(path), kPsOpenFailed);
}

TEST_F(PSReaderTest, TakesNoMoreRunsThanTheFileHolds) {
  MakeRecording(300);
  const std::string index = tree.Read(kIndex);
  const auto expectRuns = [this](bool recovered) {
    ASSERT_EQ(reader.Open(path), kPsOk);
    EXPECT_EQ(reader.WasRecovered(), recovered);
    ExpectRuns();
    EXPECT_EQ(reader.GetFrameCount(kWholeFile), 300u);
    reader.Close();  // some systems resize no file that is open
  };
  // Sixty million runs, and then as many frames of stream 3, in a file with a hole that has room
  // for them.
  const std::string millions("\x00\x87\x93\x03", 4), last("\xFF\x86\x93\x03", 4);
  Patch(kIndex, 40, millions);
  boost::filesystem::resize_file(path + 'i', 4'000'000'000);
  expectRuns(true);
  tree.Write(kIndex, index.substr(0, 64) + std::string(1024, '\0') + index.substr(1088));
  Patch(kIndex, 20, millions);
  Patch(kIndex, 64 + 3 * 32, millions);
  Patch(kIndex, 64 + 3 * 32 + 8, last);
  boost::filesystem::resize_file(path + 'i', 4'000'000'000);
  expectRuns(true);
  // A part of the table that never reached the disk.
  tree.Write(kIndex, index.substr(0, index.size() - 48) + std::string(48, '\0'));
  expectRuns(false);
}

TEST_F(PSReaderTest, EndsWalksOverLinksInARing) {
  MakeRecording(60);
  for (std::size_t n = 0; n < 60; ++n) {
    Patch(kIndex, 1088 + n * 32 + 16, std::string("\1\0\0\0\0\0\0\0", 8));  // prev 1, next 0
  }
  ASSERT_EQ(reader.Open(path), kPsOk);
  PSReadFrame frame = Ask(0, reader.GetFrameCount(0) - 1);
  (void)reader.GetFrame(frame);
  EXPECT_EQ(reader.CountFrames(0xFFFFFFFFu), 60u);
}

TEST_F(PSReaderTest, KeepsWhatItSawWhileTheFileGrows) {
  ASSERT_EQ(Create(), kPsOk);
  AddFrames(90);
  ASSERT_EQ(reader.Open(path), kPsOk);
  model = Model(testsupport::PsEnd::Unclosed);
  AddFrames(2000);
  ExpectAll();
  file.Close();
  ExpectAll();
  model = Model(testsupport::PsEnd::Closed);
  ASSERT_EQ(reader.Open(path), kPsOk);
  ExpectAll();
}

TEST_F(PSReaderTest, SeeksTheKeyFrameAheadOfAMoment) {
  MakeRecording(0);
  ASSERT_EQ(reader.Open(path), kPsOk);
  PackedTime first, last;
  EXPECT_EQ(reader.GetFirstLast(kWholeFile, first, last), kPsBadArgument);
  EXPECT_EQ(reader.SeekTime(0), 0u);
  std::vector<PSFrame> frames;  // one a second; key frames at 0, 4 and 8
  for (int n = 0; n < 10; ++n) frames.push_back(Frame(0, n % 4 == 0 ? 1 : 2, n * 1000, "x"));
  WriteRecording(file, path, 0xFF, descriptors, frames);
  ASSERT_EQ(reader.Open(path), kPsOk);
  const std::pair<int, std::uint32_t> wanted[] = {{-1, 0}, {0, 0}, {4, 0},
                                                  {5, 4},  {9, 8}, {10, 10}};
  for (const auto& [second, index] : wanted) {
    EXPECT_EQ(reader.SeekTime(kStart / 1000 + second), index) << second;
  }
}

TEST_F(PSReaderTest, GivesWhatIsWholeOfAPairCutAtAnyByte) {
  MakeRecording(120);
  const std::string index = tree.Read(kIndex), media = tree.Read(kMedia);
  std::vector<std::size_t> ends;  // of the frames in the media file
  for (const Made& frame : model) ends.push_back(frame.offset + frame.total);
  // Of `listed` frames the first `whole` are there with their content.
  const auto expect = [&](const char* name, std::size_t listed, std::size_t whole) {
    ASSERT_EQ(reader.Open(tree.Path(name)), kPsOk);
    ASSERT_EQ(reader.GetFrameCount(kWholeFile), listed);
    for (std::uint32_t n = whole > 20 ? static_cast<std::uint32_t>(whole) - 20 : 0; n < 120; ++n) {
      PSReadFrame frame = Ask(kWholeFile, n);
      const int result = reader.GetFrame(frame);
      if (n < whole) {
        ExpectFrame(frame, result, model[n]);
      } else {
        ASSERT_EQ(result, n < listed ? kPsReadFailed : kPsBadArgument);
        ASSERT_EQ(frame.size != 0, n < listed) << "its fields are told all the same";
      }
    }
  };
  tree.Write("unindexed.ps", media);
  tree.Write("whole.ps", media);
  tree.Write("whole.psi", index);
  for (std::size_t cut = 1; cut <= 4096; ++cut) {
    SCOPED_TRACE(cut);
    const std::size_t left = media.size() - cut, indexLeft = index.size() - cut;
    const auto whole =
        static_cast<std::size_t>(std::ranges::upper_bound(ends, left) - ends.begin());
    ASSERT_NE(whole, 0u);
    boost::filesystem::resize_file(path, left);
    expect(kMedia, 120, whole);
    // A scan lists the next frame, too, if its header is whole.
    boost::filesystem::resize_file(tree.Path("unindexed.ps"), left);
    expect("unindexed.ps", whole + (left >= ends[whole - 1] + 32 ? 1 : 0), whole);
    boost::filesystem::resize_file(tree.Path("whole.psi"), indexLeft);
    if (indexLeft >= 1088) {
      const std::size_t records = std::min<std::size_t>(120, (indexLeft - 1088) / 32);
      expect("whole.ps", records, records);
    } else {
      ASSERT_EQ(reader.Open(tree.Path("whole.ps")), kPsReadFailed);
    }
    ASSERT_FALSE(HasFailure());
    reader.Close();  // what is open can't be cut everywhere
  }
}

}  // namespace
}  // namespace qv::kelvo
