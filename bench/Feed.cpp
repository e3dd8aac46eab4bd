#include "bench/Feed.h"

#include <array>
#include <boost/filesystem.hpp>
#include <ctime>
#include <fstream>
#include <stdexcept>

#include "bench/Measure.h"

namespace bench {

namespace fs = boost::filesystem;

std::int64_t FrameCount(const Stretch& stretch) {
  std::int64_t count = 0;
  ForEachFrame(stretch, [&](int, int, const Unit&, std::int64_t) { ++count; });
  return count;
}

void FillBlock(KelvoWriteBlock& block, int camera, int channel, const Unit& unit,
               std::int64_t captureMs) {
  block.Length = unit.size;
  block.Payload = const_cast<std::byte*>(unit.data);
  block.Source = Provider(camera, channel);
  block.Class = KELVO_WRITE_FRAME;
  block.Header.Size = sizeof block.Header;
  block.Header.Version = 1;
  block.Header.Seconds = static_cast<std::uint32_t>(captureMs / 1000);
  block.Header.Milliseconds = static_cast<std::uint16_t>(captureMs % 1000);
  block.Header.FrameType = unit.type;
}

void Feed(const Stretch& stretch, KelvoExport write, std::int64_t startMs) {
  KelvoWriteBlock block{};
  KelvoWriteReply reply{};
  ForEachFrame(stretch, [&](int camera, int channel, const Unit& unit, std::int64_t round) {
    Outstanding::Throttle(stretch.maxOutstanding);
    FillBlock(block, camera, channel, unit, startMs + round * stretch.intervalMs);
    Outstanding::Given();
    write(&block, &reply);
  });
}

std::int64_t NowMs() {
  return static_cast<std::int64_t>(std::time(nullptr)) * 1000;
}

Recorded CountRecorded(const Footage& footage) {
  constexpr std::streamoff kFrameCountAt = 20;
  Recorded recorded;
  if (!fs::is_directory("drives")) return recorded;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator("drives")) {
    if (!fs::is_regular_file(entry.path())) continue;
    recorded.fileBytes += fs::file_size(entry.path());
    if (entry.path().extension() != ".psi") continue;
    std::ifstream in(entry.path().string(), std::ios::binary);
    in.seekg(kFrameCountAt);
    std::array<unsigned char, 4> count{};
    in.read(reinterpret_cast<char*>(count.data()), count.size());
    const std::int64_t frames = count[0] | count[1] << 8 | count[2] << 16;
    // The name is MMSS-CPPPDDII: the device is the camera.
    const std::string name = entry.path().filename().string();
    const int camera = std::stoi(name.substr(9, 2), nullptr, 16);
    recorded.frames += frames;
    recorded.payloadBytes += footage.BytesOf(camera, frames);
    ++recorded.files;
  }
  return recorded;
}

RecordingCost RecordStretch(PluginHost& host, const Stretch& stretch) {
  const Drives drives(stretch.cameras);
  host.Start({.count = stretch.cameras, .channels = stretch.channels});
  RecordingCost cost;
  const std::int64_t cpu = ProcessCpuNs(), wall = WallNs();
  Feed(stretch, host.Write(), NowMs());
  host.Drain();
  host.Stop();
  cost.cpuNs = ProcessCpuNs() - cpu;
  cost.wallNs = WallNs() - wall;
  cost.recorded = CountRecorded(stretch.footage);
  if (Outstanding::Count() != 0) throw std::runtime_error("the plug-in kept buffers");
  if (cost.recorded.frames == 0) throw std::runtime_error("nothing was recorded");
  return cost;
}

std::int64_t NullCostNs(const Stretch& stretch) {
  const std::int64_t cpu = ProcessCpuNs();
  Feed(stretch, NullWrite, NowMs());
  return ProcessCpuNs() - cpu;
}

}  // namespace bench
