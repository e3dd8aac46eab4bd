#include "bench/Footage.h"

#include <algorithm>
#include <fstream>
#include <random>
#include <stdexcept>

#include "kelvo/host_abi.h"

namespace bench {
namespace {

constexpr std::size_t kCameraStarts = 64;

// Units between two cameras' starts: whole groups, spread over the footage.
std::size_t Stride(std::size_t units, int group) {
  const std::size_t groups = units / static_cast<std::size_t>(group);
  return std::max<std::size_t>(1, groups / kCameraStarts) * static_cast<std::size_t>(group);
}

struct StartCode {
  std::size_t offset;
  unsigned value;
};

std::vector<StartCode> StartCodes(const std::vector<std::byte>& bytes) {
  std::vector<StartCode> codes;
  for (std::size_t i = 0; i + 4 <= bytes.size(); ++i) {
    if (bytes[i] == std::byte{0} && bytes[i + 1] == std::byte{0} && bytes[i + 2] == std::byte{1}) {
      codes.push_back({i, std::to_integer<unsigned>(bytes[i + 3])});
      i += 3;
    }
  }
  return codes;
}

}  // namespace

Footage Footage::Synthetic(std::size_t totalBytes, std::uint32_t meanBytes, int group) {
  constexpr double kKeyFactor = 6;
  const double plain = meanBytes * static_cast<double>(group) / (kKeyFactor + group - 1);
  const std::size_t perGroup = static_cast<std::size_t>(meanBytes) * static_cast<unsigned>(group);
  const std::size_t groups = std::max<std::size_t>(1, totalBytes / perGroup);

  Footage footage;
  footage.group = group;
  std::minstd_rand random(1);
  std::vector<std::uint32_t> sizes;
  std::size_t total = 0;
  for (std::size_t g = 0; g < groups; ++g) {
    std::size_t left = perGroup;
    for (int i = group - 1; i >= 0; --i) {
      const double jitter = 0.8 + 0.4 * static_cast<double>(random() % 1000) / 999;
      // The I frame takes what the others leave, so that every group has the mean exactly.
      const auto size = i == 0 ? left : static_cast<std::size_t>(plain * jitter);
      left -= size;
      sizes.push_back(static_cast<std::uint32_t>(size));
    }
    std::reverse(sizes.end() - group, sizes.end());
    total += perGroup;
  }

  footage.bytes.resize(total);
  for (std::byte& byte : footage.bytes) byte = static_cast<std::byte>(random() >> 8);
  std::size_t offset = 0;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    const bool key = i % static_cast<std::size_t>(group) == 0;
    const auto type = static_cast<std::uint8_t>(key ? KELVO_FRAME_I : KELVO_FRAME_P);
    footage.units.push_back({footage.bytes.data() + offset, sizes[i], type});
    offset += sizes[i];
  }
  footage.stride = Stride(footage.units.size(), group);
  return footage;
}

Footage Footage::FromMpeg2(const std::string& path) {
  constexpr unsigned kPicture = 0x00, kSequence = 0xB3, kGroup = 0xB8;
  Footage footage;
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  footage.bytes.resize(static_cast<std::size_t>(std::max<std::streamoff>(0, in.tellg())));
  in.seekg(0);
  in.read(reinterpret_cast<char*>(footage.bytes.data()),
          static_cast<std::streamsize>(footage.bytes.size()));

  // A frame begins at the first sequence, group or picture header after the slices before it.
  std::vector<std::size_t> starts;
  bool inPicture = true;
  for (const StartCode& code : StartCodes(footage.bytes)) {
    const bool header = code.value == kPicture || code.value == kSequence || code.value == kGroup;
    if (header && inPicture) {
      starts.push_back(code.offset);
      inPicture = false;
      footage.units.push_back({footage.bytes.data() + code.offset, 0, 0});
    }
    if (code.value == kPicture && code.offset + 6 <= footage.bytes.size()) {
      const auto codingType = std::to_integer<unsigned>(footage.bytes[code.offset + 5]) >> 3 & 7;
      footage.units.back().type = static_cast<std::uint8_t>(codingType);
      inPicture = true;
    }
  }
  if (starts.empty()) throw std::runtime_error("no MPEG-2 video in " + path);
  starts.push_back(footage.bytes.size());
  for (std::size_t i = 0; i < footage.units.size(); ++i) {
    footage.units[i].size = static_cast<std::uint32_t>(starts[i + 1] - starts[i]);
  }
  std::size_t second = 1;
  while (second < footage.units.size() && footage.units[second].type != KELVO_FRAME_I) ++second;
  footage.group = static_cast<int>(second);
  footage.stride = Stride(footage.units.size(), footage.group);
  return footage;
}

std::uint64_t Footage::BytesOf(int camera, std::int64_t frames) const {
  std::uint64_t total = 0;
  for (std::int64_t i = 0; i < frames; ++i) total += At(camera, i).size;
  return total;
}

}  // namespace bench
