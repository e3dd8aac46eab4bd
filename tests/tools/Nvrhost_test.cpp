#include <array>
#include <iomanip>
#include <sstream>

#include "tests/support/PsParser.h"
#include "tests/tools/ToolFixture.h"

namespace toolstest {
namespace {

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

  const auto decoded = Run("ffmpeg -v error -xerror -i " + file + " -f null -");
  EXPECT_EQ(decoded.code, 0);
  EXPECT_EQ(decoded.text, "");
  const auto probed = Run(
      "ffprobe -v error -count_frames -show_entries stream=codec_name,width,height,nb_read_frames "
      "-of csv=p=0 " +
      file);
  const int kept = codec == "mjpeg" ? kFramesKept + 7 : kFramesKept;
  const std::string video = expected + ",64,64," + std::to_string(kept);
  EXPECT_EQ(probed.text.substr(0, video.size()), video) << probed.text;
  EXPECT_EQ(probed.Says("aac,"), sound == "aac") << probed.text;

  // Shown one after the other, evenly, from the beginning on.
  const auto shown =
      Run("ffprobe -v error -select_streams v -show_entries frame=pts_time -of default=nk=1:nw=1 " +
          file +
          " | grep '^[0-9]' | awk '{d = $1 - 0.04 * (NR - 1); if (d < -0.003 || d > 0.003) "
          "bad++} END {print NR, bad + 0}'");
  EXPECT_EQ(shown.text, std::to_string(kept) + " 0\n");
}

INSTANTIATE_TEST_SUITE_P(, NvrhostExport,
                         ::testing::Values("h264 aac mp4 h264", "h264 aac mkv h264",
                                           "h265 none mp4 hevc", "mpeg2 g711 mkv mpeg2video",
                                           "mjpeg none mp4 mjpeg"));

}  // namespace
}  // namespace toolstest
