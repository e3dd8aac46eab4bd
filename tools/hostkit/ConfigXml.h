#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace hostkit {

// Builds the XML that a host sends. One camera is one Device of the provider with one video input
// and, if asked for, one audio input, on encoder 0.
struct CameraConfig {
  std::uint32_t provider = 0x00110000;  // ID of the Devices element
  int device = 0;
  int context = 0;
  std::string name;
  int standard = 2;  // codec number; the stream type byte is this + 128 (video) or + 144 (audio)
  int width = 640, height = 480;
  bool audio = false;
  int audioStandard = 1;
  int sampleRate = 8000;
  int bufSizeSamples = 160;
  bool running = false;  // encoder keeps running: its files stay open
  int preMotionMs = 0, postMotionMs = 0;
  struct Entry {
    int firstHour, lastHour, record;  // 2 always, 1 on motion, 0 on alarm
  };
  std::vector<Entry> schedule{{0, 167, 2}};
  // Retention of its own: the input gets its own stream. 0 is none.
  int expirationType = 0, expirationDays = 0;
};

// Provider ids of the channels of such a camera, as frames carry them.
[[nodiscard]] std::uint32_t VideoProvider(const CameraConfig& camera);
[[nodiscard]] std::uint32_t AudioProvider(const CameraConfig& camera);

// A full configuration of these cameras; cameras of one provider share a Devices element. With
// `preAlarmSeconds` above 0 an Events element links all their inputs to one event.
[[nodiscard]] std::string FullConfiguration(const std::vector<CameraConfig>& cameras,
                                            int preAlarmSeconds = 0);

// Action message: alarm number `action` begins (record true) or ends at a moment (UTC).
[[nodiscard]] std::string AlarmAction(const CameraConfig& camera, bool video, int action,
                                      bool record, std::int64_t seconds, int milliseconds);

// PTZ message with one opcode for the camera's video input.
[[nodiscard]] std::string PtzMessage(const CameraConfig& camera, int opcode);

// Storage delta: global time-lapse in milliseconds.
[[nodiscard]] std::string TimeLapseDelta(int milliseconds);

}  // namespace hostkit
