#include <array>
#include <cstdlib>

#include "tests/plugin/SearchFixture.h"

// The same input at the same moments makes the same files on every system, and a tree recorded on
// one system is played on another. KELVO_TREE_OUT names a folder to leave the recorded tree in,
// KELVO_TREE_IN one to take the tree to be played from (./dev windows exchanges them this way).
namespace plugintest {
namespace {

namespace fs = boost::filesystem;

constexpr std::int64_t kSecond = 1000;
// Three minutes before the clocks go from 02:00 to 03:00: 2026-03-29 00:57:00 UTC, 01:57 local.
constexpr std::int64_t kStart = 1'774'745'820'000;

struct GoldenFile {
  std::string name;
  std::size_t size;
  std::uint64_t hash;  // 64-bit FNV-1a

  bool operator==(const GoldenFile&) const = default;
};

void PrintTo(const GoldenFile& file, std::ostream* out) {
  *out << "{\"" << file.name << "\", " << file.size << ", 0x" << std::hex << file.hash << std::dec
       << "}";
}

const std::vector<GoldenFile> kGolden = {
    {"2026/03/29/01/5700-00110080.ps", 228698, 0x9a63dd2a4ab90819},
    {"2026/03/29/01/5700-00110080.psi", 20000, 0x587ab3251623da6c},
    {"2026/03/29/01/5700-00110180.ps", 142714, 0x19e815583d2f572c},
    {"2026/03/29/01/5700-00110180.psi", 5792, 0xeeff8101b4c1008},
    {"2026/03/29/03/0200-00110080.ps", 141498, 0xf9bad20c1a1986d},
    {"2026/03/29/03/0200-00110080.psi", 12640, 0xbf3d93cdfeff4ed3},
    {"2026/03/29/03/0200-00110180.ps", 84186, 0x2426c6484bab82fa},
    {"2026/03/29/03/0200-00110180.psi", 3856, 0xcec0c9f46dcfa398},
};

std::uint64_t Hash(const std::string& bytes) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return hash;
}

void CopyTree(const fs::path& from, const fs::path& to) {
  fs::create_directories(to);
  for (const auto& entry : fs::recursive_directory_iterator(from)) {
    const fs::path target = to / fs::relative(entry.path(), from);
    if (fs::is_directory(entry.status())) {
      fs::create_directories(target);
    } else {
      fs::copy_file(entry.path(), target, fs::copy_option::overwrite_if_exists);
    }
  }
}

using Golden = SearchTest;

TEST_F(Golden, SameInputMakesTheSameFilesAndAnySystemsFilesArePlayed) {
  // Eight minutes of two cameras, of which one records on motion only: over a roll-over and the
  // change to summer time.
  CameraConfig steady = Camera(0), onMotion = Camera(1, kOnMotion);
  steady.audio = true;
  steady.name = "Hofeinfahrt \xC3\xBC";
  onMotion.preMotionMs = 3000;
  onMotion.postMotionMs = 2000;
  auto video = MakeFrames(VideoProvider(steady), kStart, kSecond, Times(96, "IPBPB"), 400);
  auto moving =
      MakeFrames(VideoProvider(onMotion), kStart + 250, kSecond, Times(48, "IPPPPPPPPB"), 900);
  auto audio = MakeFrames(AudioProvider(steady), kStart + 500, kSecond, Times(480, "A"), 160);
  bundle.clock.SetNow(kStart);
  Start({steady, onMotion});
  for (std::size_t n = 0; n < moving.size(); ++n) {
    if (n % 100 >= 60) moving[n].header.FrameFlags |= KELVO_FLAG_MOTION;
    auto& header = video[n].header;
    header.ExtensionLength = static_cast<std::uint32_t>(n % 88);
    for (std::size_t i = 0; i < 128; ++i) header.Extension[i] = static_cast<std::uint8_t>(n + i);
    GiveInTime(std::array{video[n], moving[n], audio[n]});
  }
  Finish();
  EXPECT_EQ(Recordings().size(), kGolden.size() / 2);  // each pair without a fault
  std::vector<GoldenFile> recorded;
  for (const auto& name : qv::kelvo::FilesBelow(tree.Path("drives/a"), "")) {
    if (name.find(".ps") == std::string::npos) continue;
    const std::string bytes = tree.Read("drives/a/" + name);
    recorded.push_back({name, bytes.size(), Hash(bytes)});
  }
  EXPECT_EQ(recorded, kGolden);
  for (const auto& line : host->Lines()) EXPECT_LT(line.level, KELVO_LOG_WARNING) << line.text;
  if (const char* out = std::getenv("KELVO_TREE_OUT")) CopyTree(tree.Path("drives/a"), out);
  if (const char* in = std::getenv("KELVO_TREE_IN")) {
    fs::remove_all(tree.Path("drives/a"));
    CopyTree(in, tree.Path("drives/a"));
  }

  Start();
  const std::int64_t first = kStart / kSecond;
  const auto all = Search(Ask(1, first - 10, first + 500, {steady, onMotion}));
  auto played = all.frames;
  std::erase_if(played, [&](const PlayedFrame& frame) {
    return frame.event.Source != VideoProvider(steady);
  });
  EXPECT_GT(all.frames.size(), played.size() + 100);  // those of the other camera
  // The last group was still undecided.
  ExpectPlayed(played, std::span(video).first(video.size() - 5));
  const auto part = Search(Ask(1, first + 305, first + 310, {steady}));
  ExpectPlayed(part.frames, std::span(video).subspan(305, 5));
}

}  // namespace
}  // namespace plugintest
