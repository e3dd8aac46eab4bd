#include <algorithm>
#include <cstdlib>

#include "tests/plugin/SearchFixture.h"

// The same input at the same moments makes the same files on every system, and a tree recorded on
// one system is played on another. KELVO_TREE_OUT names a folder to leave the recorded tree in,
// KELVO_TREE_IN one to take the tree to be played from (./dev windows exchanges them this way).
namespace plugintest {
namespace {

namespace fs = boost::filesystem;

constexpr std::int64_t kSecond = 1000, kMinute = 60 * kSecond;
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

class Golden : public SearchTest {
 protected:
  Golden() {
    steady.audio = true;
    steady.name = "Hofeinfahrt \xC3\xBC";
    onMotion.preMotionMs = 3000;
    onMotion.postMotionMs = 2000;
  }

  // Eight minutes of two cameras, of which one records on motion only: over a roll-over and the
  // change to summer time. What is recorded of the first camera's video goes to `video`.
  void RecordTree() {
    video = MakeFrames(VideoProvider(steady), kStart, kSecond, Times(96, "IPBPB"), 400);
    auto moving =
        MakeFrames(VideoProvider(onMotion), kStart + 250, kSecond, Times(48, "IPPPPPPPPB"), 900);
    auto audio = MakeFrames(AudioProvider(steady), kStart + 500, kSecond, Times(480, "A"), 160);
    for (std::size_t n = 0; n < moving.size(); ++n) {
      if (n % 100 >= 60) moving[n].header.FrameFlags |= KELVO_FLAG_MOTION;
      auto& header = video[n].header;
      header.ExtensionLength = static_cast<std::uint32_t>(n % 88);
      for (std::size_t i = 0; i < 128; ++i) header.Extension[i] = static_cast<std::uint8_t>(n + i);
    }
    std::vector<Frame> frames;
    for (std::size_t n = 0; n < video.size(); ++n) {
      for (const auto* kind : {&video, &moving, &audio}) frames.push_back((*kind)[n]);
    }
    bundle.clock.SetNow(kStart);
    Start();
    Configure({steady, onMotion});
    GiveInTime(frames);
    Finish();
  }

  std::vector<GoldenFile> Recorded() const {
    std::vector<GoldenFile> files;
    for (const auto& name : tree.Files()) {
      if (!name.starts_with("drives/a/") || name.find(".ps") == std::string::npos) continue;
      const std::string bytes = tree.Read(name);
      files.push_back({name.substr(9), bytes.size(), Hash(bytes)});
    }
    return files;
  }

  CameraConfig steady = Camera(0), onMotion = Camera(1, kOnMotion);
  std::vector<Frame> video;
};

// A folder named by the environment; empty without it.
fs::path Given(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
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

TEST_F(Golden, SameInputMakesTheSameFilesOnEverySystem) {
  RecordTree();
  EXPECT_EQ(Recorded(), kGolden);
  EXPECT_EQ(Recordings().size(), kGolden.size() / 2);  // each pair without a fault
  const fs::path out = Given("KELVO_TREE_OUT");
  if (!out.empty()) CopyTree(tree.Path("drives/a"), out);
}

TEST_F(Golden, PlaysWhatAnySystemRecorded) {
  RecordTree();
  const fs::path in = Given("KELVO_TREE_IN");
  if (!in.empty()) {
    fs::remove_all(tree.Path("drives/a"));
    CopyTree(in, tree.Path("drives/a"));
  }
  Start();
  const std::int64_t first = kStart / kSecond;
  const auto all = Search(Ask{1, first - 10, first + 500}.Video(steady).Video(onMotion));
  std::vector<PlayedFrame> played;
  for (const auto& frame : all.frames) {
    if (frame.event.Source == VideoProvider(steady)) played.push_back(frame);
  }
  ASSERT_EQ(played.size(), video.size() - 5);  // the last group was still undecided
  ExpectPlayed(played, std::span(video).first(played.size()));
  EXPECT_GT(all.frames.size(), played.size() + 100);  // those of the other camera

  const auto part = Search(Ask{1, first + 305, first + 310}.Video(steady));
  ExpectPlayed(part.frames, std::span(video).subspan(305, 5));
}

}  // namespace
}  // namespace plugintest
