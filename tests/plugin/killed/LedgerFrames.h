#pragma once

#include <cstdint>
#include <cstring>
#include <string>

// What a recorder that gets killed records, and the ledger that it keeps meanwhile: shared by it
// and by the test that looks at what it left.
namespace killedwriter {

constexpr int kCameras = 4;
constexpr std::uint32_t kProvider = 0x00110000;  // camera n is device n
constexpr std::int64_t kStartMs = 1'750'000'000'000;
constexpr std::int64_t kStepMs = 40;

// One line of the ledger, written before a frame is given and when its buffer is released.
struct LedgerEntry {
  std::uint8_t released;  // 0 given, 1 released
  std::uint8_t camera;
  std::uint16_t unused;
  std::uint32_t number;
};

inline std::uint8_t FrameType(std::uint32_t number) {
  return number % 5 == 0 ? std::uint8_t{1} : number % 2 == 0 ? std::uint8_t{2} : std::uint8_t{3};
}

// Content of a camera's n-th frame; camera and number are in front. Some are larger than a page.
inline std::string Payload(std::uint8_t camera, std::uint32_t number) {
  std::string payload(number % 7 == 0 ? 20'000 + number % 100 : 500 + number % 64, '\0');
  std::uint32_t value = (number + 1) * 2654435761u + camera;
  for (auto& c : payload) {
    value = value * 1664525u + 1013904223u;
    c = static_cast<char>(value >> 24);
  }
  payload[0] = static_cast<char>(camera);
  std::memcpy(&payload[4], &number, sizeof number);
  return payload;
}

}  // namespace killedwriter
