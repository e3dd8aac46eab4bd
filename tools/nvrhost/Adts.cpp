#include "nvrhost/Adts.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

namespace nvrhost {
namespace {

constexpr std::array kSampleRates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                  22050, 16000, 12000, 11025, 8000,  7350};
constexpr std::size_t kHeaderSize = 7;
constexpr std::size_t kMaxSize = (1u << 13) - 1;

}  // namespace

std::vector<std::byte> WithAdtsHeader(std::span<const std::byte> unit, int sampleRate,
                                      int channels) {
  const auto* const rate = std::find(kSampleRates.begin(), kSampleRates.end(), sampleRate);
  const std::size_t size = unit.size() + kHeaderSize;
  if (rate == kSampleRates.end() || channels < 1 || channels > 7 || size > kMaxSize) {
    throw std::runtime_error("AAC at " + std::to_string(sampleRate) + " Hz with " +
                             std::to_string(channels) + " channels has no ADTS form");
  }
  const auto rateIndex = static_cast<unsigned>(rate - kSampleRates.begin());
  const auto channelBits = static_cast<unsigned>(channels);
  const auto length = static_cast<unsigned>(size);
  constexpr unsigned kLowComplexity = 1;
  const std::array<unsigned, kHeaderSize> header{
      0xFF,  // sync word
      0xF1,  // MPEG-4, no CRC
      kLowComplexity << 6 | rateIndex << 2 | channelBits >> 2,
      (channelBits & 3) << 6 | length >> 11,
      (length >> 3) & 0xFF,
      (length & 7) << 5 | 0x1F,  // buffer fullness: variable rate
      0xFC,
  };
  std::vector<std::byte> result;
  result.reserve(size);
  for (const unsigned value : header) result.push_back(static_cast<std::byte>(value));
  result.insert(result.end(), unit.begin(), unit.end());
  return result;
}

}  // namespace nvrhost
