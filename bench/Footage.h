#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// One encoded frame of footage.
struct Unit {
  const std::byte* data = nullptr;
  std::uint32_t size = 0;
  std::uint8_t type = 0;  // KELVO_FRAME_...
};

// Encoded frames to give or to write over and over: their bytes and where each begins.
class Footage {
 public:
  // Made up, in groups of `group` frames: an I frame six times the size of a P frame, sizes varying
  // by up to a fifth either way in a fixed pattern, `meanBytes` on average over `totalBytes`.
  static Footage Synthetic(std::size_t totalBytes, std::uint32_t meanBytes, int group);

  // The frames of an MPEG-2 video elementary stream; throws std::runtime_error if it holds none.
  static Footage FromMpeg2(const std::string& path);

  Footage(Footage&&) = default;

  [[nodiscard]] int Group() const { return group; }
  [[nodiscard]] std::size_t Units() const { return units.size(); }
  [[nodiscard]] std::uint64_t Bytes() const { return bytes.size(); }

  // Frame number `index` of camera number `camera`: all cameras show the same endless loop, each
  // from another group on.
  [[nodiscard]] const Unit& At(int camera, std::int64_t index) const {
    const auto start = static_cast<std::size_t>(camera) * stride;
    return units[(start + static_cast<std::size_t>(index)) % units.size()];
  }

  // Bytes of the first `frames` frames of a camera.
  [[nodiscard]] std::uint64_t BytesOf(int camera, std::int64_t frames) const;

 private:
  Footage() = default;

  std::vector<std::byte> bytes;
  std::vector<Unit> units;
  std::size_t stride = 0;  // units between the starts of two cameras
  int group = 0;
};

}  // namespace bench
