#include <array>
#include <iomanip>
#include <sstream>
#include <utility>

#include "tests/support/PsParser.h"
#include "tests/tools/ToolFixture.h"

namespace toolstest {
namespace {

using NvrhostPlayback = ToolTest;

// Video codec, audio codec, container, and the video codec by ffprobe.
class NvrhostExport : public ToolTest, public ::testing::WithParamInterface<const char*> {};

// 25 frames a second in groups of 10: the last group, undecided at the end, isn't kept.
constexpr int kFramesKept = 190;

// The frames of a slot, taken out by the tests' own reader of the format, as lines of a ledger.
std::string AsLedger(const testsupport::PsRecording& recording, unsigned slot) {
  std::ostringstream lines;
  for (const auto* frame : recording.Of(slot)) {
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const std::uint8_t byte : frame->payload) hash = (hash ^ byte) * 0x100000001B3;
    lines << frame->timeMs << ' ' << frame->type << ' ' << frame->flags << ' '
          << frame->payload.size() << ' ' << std::hex << std::setw(16) << std::setfill('0') << hash
          << std::dec << '\n';
  }
  return lines.str();
}

TEST_P(NvrhostExport, RecordsAndExportsWhatTheEncodersGave) {
  std::istringstream row(GetParam());
  std::string codec, sound, container, expected;
  row >> codec >> sound >> container >> expected;
  Record("--codec " + codec + " --audio " + sound);
  const auto recording = testsupport::ReadPs(tree.Path(OnlyRecording()));
  EXPECT_EQ(recording.faults, std::vector<std::string>{});
  std::array<std::string, 2> given;  // video and audio
  std::istringstream ledger(tree.Read("given"));
  std::string provider, time, type, flags, size, hash, metadata;
  std::getline(ledger, provider);  // the heading
  while (ledger >> provider >> time >> type >> flags >> size >> hash >> metadata) {
    given[type == "0"] += time + ' ' + type + ' ' + flags + ' ' + size + ' ' + hash + '\n';
  }
  EXPECT_GE(recording.Of(0).size(), std::size_t{kFramesKept});
  EXPECT_TRUE(given[0].starts_with(AsLedger(recording, 0)));
  EXPECT_EQ(recording.Of(16).empty(), sound == "none");
  EXPECT_TRUE(given[1].starts_with(AsLedger(recording, 16)));

  const std::string file = "out." + container;
  const auto played = Nvrhost("play --dir . --verify given --complete --export " + file);
  ASSERT_EQ(played.code, 0) << played.text;

  const auto decoded = Ffmpeg("ffmpeg -v error -xerror -i " + file + " -f null -");
  EXPECT_EQ(decoded.code, 0);
  EXPECT_EQ(decoded.text, "");
  const auto probed = Ffmpeg(
      "ffprobe -v error -count_frames -show_entries stream=codec_name,width,height,nb_read_frames "
      "-of csv=p=0 " +
      file);
  const int kept = codec == "mjpeg" ? kFramesKept + 7 : kFramesKept;
  const std::string video = expected + ",64,64," + std::to_string(kept);
  EXPECT_EQ(probed.text.substr(0, video.size()), video) << probed.text;
  EXPECT_EQ(probed.Says("aac,"), sound == "aac") << probed.text;

  // Shown one after the other, evenly, from the beginning on.
  const auto shown = Ffmpeg(
      "ffprobe -v error -select_streams v -show_entries frame=pts_time -of default=nk=1:nw=1 " +
      file +
      " | grep '^[0-9]' | awk '{d = $1 - 0.04 * (NR - 1); if (d < -0.003 || d > 0.003) "
      "bad++} END {print NR, bad + 0}'");
  EXPECT_EQ(shown.text, std::to_string(kept) + " 0\n");
}

INSTANTIATE_TEST_SUITE_P(, NvrhostExport,
                         ::testing::Values("h264 aac mp4 h264", "h264 aac mkv h264",
                                           "h265 none mp4 hevc", "mpeg2 g711 mkv mpeg2video",
                                           "mjpeg none mp4 mjpeg"));

TEST_F(NvrhostPlayback, Mpeg2RecordingIsAProgramStreamForOtherTools) {
  Record("--codec mpeg2");
  const std::string media = OnlyRecording();
  // What ffprobe says is the number of pictures that it decoded, and any error.
  const auto decode = [&](const std::string& options) {
    return Ffmpeg(
               "ffprobe -f mpeg -count_frames -select_streams v:0 -show_entries "
               "stream=nb_read_frames -of default=nk=1:nw=1 " +
               options + media)
        .text;
  };
  EXPECT_EQ(decode("-v error -skip_initial_bytes 1978 "), std::to_string(kFramesKept) + "\n");
  // Read as it stands, the four bytes behind the map are taken for a checksum: the first picture
  // is lost, and with it its group.
  EXPECT_EQ(decode("-v fatal "), std::to_string(kFramesKept - 10) + "\n");
}

TEST_F(NvrhostPlayback, TellsFramesThatAreMissingInBetween) {
  Record("--codec mpeg2 --record motion --motion 4:1");
  EXPECT_EQ(Nvrhost("play --dir . --verify given").code, 0);
  EXPECT_EQ(Nvrhost("play --dir . --verify given --complete").code, 1);
}

TEST_F(NvrhostPlayback, TellsAChangedAndAnUnknownFrame) {
  Record("--codec mpeg2 --metadata 40");
  const auto media = OnlyRecording();
  auto bytes = tree.Read(media);
  bytes[bytes.size() - 200] ^= 1;  // in the last frame's picture
  tree.Write(media, bytes);
  auto ledger = tree.Read("given");
  const auto line = ledger.find('\n', ledger.size() / 2) + 1;
  ledger.erase(line, ledger.find('\n', line) + 1 - line);
  tree.Write("given", ledger);

  const auto played = Nvrhost("play --dir . --verify given");
  EXPECT_EQ(played.code, 1);
  EXPECT_TRUE(played.Says("188 frames are what was given, 1 differ, 1 were never given"))
      << played.text;
}

TEST_F(NvrhostPlayback, ListsCamerasWithTheirFlags) {
  Record("--cameras 2 --codec mpeg2 --motion 100:3 --alarm 6:1");
  const auto all = Nvrhost("search --dir . --json");
  EXPECT_EQ(all.code, 0);
  for (const char* const text :
       {"\"Camera 1\"", "\"Camera 2\"", "\"motion\": true, \"alarm\": false",
        "\"motion\": false, \"alarm\": true", "\"motion\": false, \"alarm\": false"}) {
    EXPECT_TRUE(all.Says(text)) << text << "\n" << all.text;
  }
  const auto one = Nvrhost("search --dir . --camera 2");
  EXPECT_TRUE(one.Says("Camera 2") && !one.Says("Camera 1") && one.Says("▒") && one.Says("█"))
      << one.text;
  EXPECT_EQ(Nvrhost("search --dir . --from @1000000000 --to @1000000100").code, 1);
  EXPECT_EQ(Nvrhost("search --dir . --camera 3").code, 2);
}

TEST_F(NvrhostPlayback, MakesAContactSheetOfDecodedPictures) {
  Record("--codec h264", "320x240");
  const auto made = Nvrhost("thumbs --dir . --columns 2 --cell 160 --out sheet.png");
  EXPECT_EQ(made.code, 0);
  EXPECT_TRUE(made.Says("1 cameras, 2 moments, 2 of 2 pictures")) << made.text;
  EXPECT_TRUE(Nvrhost("thumbs --dir . --at @1000000000 --out none.png").Says("0 of 1 pictures"));
  // Two cells of 160x120 with a gap of 4 around each. The test picture begins with bars of red and
  // green.
  const auto size =
      Ffmpeg("ffprobe -v error -show_entries stream=width,height -of csv=p=0 sheet.png");
  EXPECT_EQ(size.text, "332,128\n");
  for (const auto& [x, color] : {std::pair{12, "100"}, {42, "010"}, {176, "100"}, {206, "010"}}) {
    const auto seen = Ffmpeg("ffmpeg -v error -i sheet.png -vf crop=8:80:" + std::to_string(x) +
                             ":24,scale=1:1 -f rawvideo -pix_fmt rgb24 - | od -An -tu1 | awk "
                             "'{printf \"%d%d%d\", ($1 > 128), ($2 > 128), ($3 > 128)}'");
    EXPECT_EQ(seen.text, color) << x;
  }
}

}  // namespace
}  // namespace toolstest
