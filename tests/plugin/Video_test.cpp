#include <cctype>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>

#include "tests/plugin/PluginFixture.h"

// Frames of real encoders, by the ffmpeg command line tool.
namespace plugintest {
namespace {

constexpr int kPictures = 60;
constexpr int kGroup = 12;

std::string Slurp(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Runs a command; fails the test when it doesn't end with 0. Returns all that it printed.
std::string Shell(const std::string& command) {
  const int status = std::system((command + " > said.txt 2>&1").c_str());
  const auto said = Slurp("said.txt");
  EXPECT_EQ(status, 0) << command << "\n" << said;
  return said;
}

// Runs ffmpeg into a file in the working directory and returns its content.
std::string Encode(const std::string& arguments, const std::string& format) {
  Shell("ffmpeg -v error -nostdin -y " + arguments + " -f " + format + " coded.bin");
  auto coded = Slurp("coded.bin");
  EXPECT_GT(coded.size(), 1000u);
  return coded;
}

std::string EncodeVideo(const std::string& encoder, const std::string& format) {
  return Encode("-f lavfi -i testsrc2=size=192x160:rate=25 -frames:v " + std::to_string(kPictures) +
                    " -g " + std::to_string(kGroup) + " " + encoder,
                format);
}

struct Unit {
  std::uint8_t type;
  std::string data;
};

std::uint8_t At(const std::string& data, std::size_t at) {
  return at < data.size() ? static_cast<std::uint8_t>(data[at]) : std::uint8_t{0};
}

// Cuts in front of each byte position that `begins` says to be the start of an access unit.
std::vector<Unit> Split(const std::string& coded, const std::function<bool(std::size_t)>& begins,
                        const std::function<std::uint8_t(const std::string&)>& type) {
  std::vector<Unit> units;
  std::size_t start = 0;
  for (std::size_t at = 1; at <= coded.size(); ++at) {
    if (at < coded.size() && !begins(at)) continue;
    auto data = coded.substr(start, at - start);
    const auto kind = type(data);
    units.push_back({kind, std::move(data)});
    start = at;
  }
  return units;
}

bool StartCode(const std::string& data, std::size_t at) {
  return at + 3 < data.size() && data[at] == 0 && data[at + 1] == 0 && data[at + 2] == 1;
}

// Where the picture header of an MPEG-2 access unit is.
std::size_t PictureHeader(const std::string& unit) {
  std::size_t at = 0;
  while (at < unit.size() && !(StartCode(unit, at) && At(unit, at + 3) == 0)) ++at;
  return at;
}

std::vector<Unit> SplitMpeg2(const std::string& coded) {
  // A picture begins with its own start code, or with the sequence or group header in front of it.
  bool pictureSeen = false;
  const auto begins = [&](std::size_t at) {
    if (!StartCode(coded, at)) return false;
    const auto code = At(coded, at + 3);
    const bool head = code == 0xB3 || code == 0xB8 || code == 0x00;
    const bool cut = head && pictureSeen;
    if (cut) pictureSeen = false;
    if (code == 0x00) pictureSeen = true;
    return cut;
  };
  const auto type = [](const std::string& unit) {
    return static_cast<std::uint8_t>(At(unit, PictureHeader(unit) + 5) >> 3 & 7);
  };
  return Split(coded, begins, type);
}

// Units begin with an access unit delimiter, which also tells the kind of picture.
std::vector<Unit> SplitNal(const std::string& coded, bool hevc) {
  const auto delimiter = [hevc](const std::string& data, std::size_t at) {
    if (at + 6 >= data.size() || data[at] != 0 || !StartCode(data, at + 1)) return false;
    const auto head = At(data, at + 4);
    return hevc ? (head >> 1 & 63) == 35 : (head & 31) == 9;
  };
  const auto type = [&](const std::string& unit) {
    EXPECT_TRUE(delimiter(unit, 0));
    return static_cast<std::uint8_t>(1 + (At(unit, hevc ? 6 : 5) >> 5));
  };
  return Split(
      coded, [&](std::size_t at) { return delimiter(coded, at); }, type);
}

std::vector<Unit> SplitJpeg(const std::string& coded) {
  return Split(
      coded,
      [&](std::size_t at) {
        return At(coded, at - 2) == 0xFF && At(coded, at - 1) == 0xD9 && At(coded, at) == 0xFF &&
               At(coded, at + 1) == 0xD8;
      },
      [](const std::string&) { return std::uint8_t{KELVO_FRAME_I}; });
}

std::vector<Unit> SplitAdts(const std::string& coded) {
  std::vector<Unit> units;
  for (std::size_t at = 0; at + 7 <= coded.size();) {
    const std::size_t length =
        (At(coded, at + 3) & 3u) << 11 | At(coded, at + 4) << 3u | At(coded, at + 5) >> 5u;
    EXPECT_EQ(At(coded, at), 0xFF);
    if (length < 7) break;
    units.push_back({KELVO_FRAME_AUDIO, coded.substr(at, length)});
    at += length;
  }
  return units;
}

std::vector<Unit> SplitEvenly(const std::string& coded, std::size_t size) {
  std::vector<Unit> units;
  for (std::size_t at = 0; at < coded.size(); at += size) {
    units.push_back({KELVO_FRAME_AUDIO, coded.substr(at, size)});
  }
  return units;
}

// The number at the end of what ffprobe printed.
std::size_t FrameCount(const std::string& said) {
  auto end = said.size();
  while (end > 0 && std::isdigit(At(said, end - 1)) == 0) --end;
  auto begin = end;
  while (begin > 0 && std::isdigit(At(said, begin - 1)) != 0) --begin;
  return begin == end ? 0 : std::stoul(said.substr(begin, end - begin));
}

class RealVideo : public PluginTest {
 protected:
  // Units as frames, `stepMs` apart, with some metadata.
  static std::vector<Frame> AsFrames(std::uint32_t provider, const std::vector<Unit>& units,
                                     std::int64_t start, std::int64_t stepMs) {
    std::vector<Frame> frames;
    for (const auto& unit : units) {
      auto number = frames.size();
      auto frame = MakeFrame(provider, unit.type, start, 0, 0);
      frame.payload = unit.data;
      // Only the low byte of the length counts, and no more than 87 bytes fit.
      frame.header.ExtensionLength = static_cast<std::uint32_t>(number * 7 % 129) | 0x5A00;
      for (auto& byte : frame.header.Extension) byte = static_cast<std::uint8_t>(number += 37);
      frames.push_back(frame);
      start += stepMs;
    }
    return frames;
  }

  // Pictures of MPEG-2 come in the order of decoding; a camera stamps when it took them.
  static void StampInDisplayOrder(std::vector<Frame>& frames, std::int64_t start,
                                  std::int64_t stepMs) {
    std::size_t group = 0;
    for (std::size_t n = 0; n < frames.size(); ++n) {
      if (frames[n].header.FrameType == KELVO_FRAME_I) group = n;
      const auto at = PictureHeader(frames[n].payload);
      const auto inGroup =
          At(frames[n].payload, at + 4) << 2u | At(frames[n].payload, at + 5) >> 6u;
      const auto time = start + static_cast<std::int64_t>(group + inGroup) * stepMs;
      frames[n].header.Seconds = static_cast<std::uint32_t>(time / 1000);
      frames[n].header.Milliseconds = static_cast<std::uint16_t>(time % 1000);
    }
  }

  // Records these frames, and some behind them that settle the last group.
  PsRecording Record(const CameraConfig& camera, const std::vector<Frame>& video,
                     const std::vector<Frame>& audio) {
    Start();
    Configure({camera});
    std::size_t sound = 0;
    for (const auto& frame : video) {
      while (sound < audio.size() && TimeOf(audio[sound]) <= TimeOf(frame)) Give(audio[sound++]);
      Give(frame);
    }
    EXPECT_EQ(sound, audio.size());
    GiveAll(MakeFrames(VideoProvider(camera), TimeOf(video.back()) + 1000, 40, "IPP"));
    Finish();
    auto recordings = RecordingsOf(camera);
    EXPECT_EQ(recordings.size(), 1u);
    return recordings.empty() ? PsRecording{} : std::move(recordings[0]);
  }
};

TEST_F(RealVideo, Mpeg2FileIsAProgramStreamForOtherTools) {
  auto camera = Camera();
  camera.width = 192;
  camera.height = 160;
  const auto units = SplitMpeg2(
      EncodeVideo("-c:v mpeg2video -bf 2 -flags +cgop -sc_threshold 1000000000", "mpeg2video"));
  ASSERT_EQ(units.size(), static_cast<std::size_t>(kPictures));
  const auto start = NowMs();
  auto frames = AsFrames(VideoProvider(camera), units, start, 40);
  StampInDisplayOrder(frames, start, 40);
  const auto recording = Record(camera, frames, {});
  ExpectFrames(recording.Of(kVideoSlot), frames);
  std::size_t firstGroup = 1;
  while (units[firstGroup].type != KELVO_FRAME_I) ++firstGroup;
  ASSERT_LT(firstGroup, units.size());

  const auto& path = recording.path;
  EXPECT_EQ(Shell("ffmpeg -v error -skip_initial_bytes 1978 -f mpeg -i " + path + " -f null -"),
            "");
  const std::string count =
      "ffprobe -v error -f mpeg -count_frames -select_streams v:0 "
      "-show_entries stream=nb_read_frames -of csv=p=0 ";
  EXPECT_EQ(FrameCount(Shell(count + "-skip_initial_bytes 1978 " + path)), units.size());
  // Read as it stands, the four bytes behind the map are taken for a checksum: the first picture
  // is lost, and with it its group.
  EXPECT_EQ(FrameCount(Shell(count + path)), units.size() - firstGroup);
}

TEST_F(RealVideo, PayloadsOfEachCodecComeBackUnchanged) {
  struct Codec {
    const char* name;
    int standard;
    std::string encoder, format;
    std::function<std::vector<Unit>(const std::string&)> split;
    bool hasB;
  };
  const Codec codecs[] = {
      {"H.264", 27, "-c:v libx264 -preset ultrafast -bf 2 -bsf:v h264_metadata=aud=insert", "h264",
       [](const std::string& coded) { return SplitNal(coded, false); }, true},
      {"H.265", 36,
       "-c:v libx265 -preset ultrafast -bf 2 -x265-params log-level=none "
       "-bsf:v hevc_metadata=aud=insert",
       "hevc", [](const std::string& coded) { return SplitNal(coded, true); }, true},
      {"MJPEG", 8, "-c:v mjpeg -q:v 5 -pix_fmt yuvj420p", "mjpeg", SplitJpeg, false}};
  const auto adts = SplitAdts(
      Encode("-f lavfi -i sine=frequency=440:sample_rate=32000 -t 2.4 -c:a aac -b:a 48k", "adts"));
  const auto ulaw = SplitEvenly(
      Encode("-f lavfi -i sine=frequency=440:sample_rate=8000 -t 2.4 -c:a pcm_mulaw", "mulaw"),
      320);
  ASSERT_GT(adts.size(), 50u);
  ASSERT_EQ(ulaw.size(), 60u);

  int device = 0;
  for (const auto& codec : codecs) {
    SCOPED_TRACE(codec.name);
    auto camera = Camera(device++);
    camera.standard = codec.standard;
    camera.audio = true;
    camera.sampleRate = device % 2 == 1 ? 32000 : 8000;
    camera.bufSizeSamples = device % 2 == 1 ? 1024 : 320;
    const auto units = codec.split(EncodeVideo(codec.encoder, codec.format));
    ASSERT_EQ(units.size(), static_cast<std::size_t>(kPictures));
    const auto start = NowMs();
    const auto video = AsFrames(VideoProvider(camera), units, start, 40);
    const auto audio = device % 2 == 1 ? AsFrames(AudioProvider(camera), adts, start, 30)
                                       : AsFrames(AudioProvider(camera), ulaw, start, 39);
    const auto recording = Record(camera, video, audio);
    ExpectFrames(recording.Of(kVideoSlot), video);
    ExpectFrames(recording.Of(kAudioSlot), audio);
    EXPECT_EQ(recording.streams[kVideoSlot].type, 128 + codec.standard);
    EXPECT_EQ(recording.streams[kAudioSlot].sampleRate, camera.sampleRate);
    bool hasB = false;
    for (const auto& unit : units) hasB = hasB || unit.type == KELVO_FRAME_B;
    EXPECT_EQ(hasB, codec.hasB);
  }
}

// A packet as a capture plug-in would make it: a header of 32 bytes, in which
// the padding is counted, and the payload.
std::string PesPacket(const Frame& frame) {
  const auto pad = (32 - frame.payload.size() % 32) % 32;
  const auto total = static_cast<std::uint32_t>(32 + frame.payload.size() + pad);
  const auto ms = static_cast<std::uint64_t>(TimeOf(frame) % 86'400'000);
  std::string packet(32, '\0');
  const auto put = [&](std::size_t at, std::uint64_t value) {
    packet[at] = static_cast<char>(static_cast<unsigned char>(value));
  };
  const auto stamp = [&](std::size_t at, std::uint64_t v) {
    put(at, (v >> 29 & 0x0E) | 0x31);
    put(at + 1, v >> 22);
    put(at + 2, v >> 14 | 1);
    put(at + 3, v >> 7);
    put(at + 4, v << 1 | 1);
  };
  put(2, 1);
  put(3, 0xE7);  // the plug-in knows better
  put(4, (total - 6) >> 8);
  put(5, total - 6);
  put(6, 0x80);
  put(7, 0xC1);
  put(8, 23);
  stamp(9, ms * 90);
  stamp(14, ms * 90);
  put(19, 0x0F);
  put(20, 0x80 | 11);
  put(24, total >> 15 | 0x80);
  put(25, (total >> 8 & 7) | 8 | (total >> 7 & 0xF0));
  put(26, total);
  put(27, frame.header.FrameFlags | 0x1Cu | frame.header.FrameType);
  put(28, 0xFF);
  put(29, 0xC0 | pad);
  const auto date = 25 << 9 | 6 << 5 | 15;
  put(30, date);
  put(31, date >> 8);
  return packet + frame.payload;  // the padding itself is the writer's
}

using RealVideoPackets = SeamTest;

TEST_F(RealVideoPackets, ReadyMadePacketsAreTakenAsTheyAre) {
  const auto camera = Camera();
  Start();
  Configure({camera});
  auto frames = MakeFrames(VideoProvider(camera), Now(), 40, Times(5, "IPBPB"), 900);
  frames[5].header.FrameFlags = KELVO_FLAG_CARRIED;
  for (const auto& frame : frames) {
    const auto packet = PesPacket(frame);
    auto header = frame.header;
    header.FrameType = KELVO_FRAME_AUDIO;  // what the packet says counts
    header.FrameFlags = 0;
    ASSERT_TRUE(host->WriteFrame(frame.provider, header, host->NewBuffer(packet),
                                 static_cast<std::uint32_t>(packet.size()), KELVO_WRITE_SUB_PES));
  }
  Finish();
  const auto recordings = RecordingsOf(camera);
  ASSERT_EQ(recordings.size(), 1u);
  ExpectFrames(recordings[0].Of(kVideoSlot), std::span(frames).first(20));
}

}  // namespace
}  // namespace plugintest
