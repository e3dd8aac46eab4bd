#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/plugin/PluginFixture.h"

namespace plugintest {

// One frame event as the host saw it.
struct PlayedFrame {
  KelvoHostRequest event{};
  std::string packet;

  [[nodiscard]] std::int64_t TimeMs() const {
    return std::int64_t{event.u.Header.Seconds} * 1000 + event.u.Header.Milliseconds;
  }
  [[nodiscard]] std::string Payload() const {
    return packet.substr(std::min<std::size_t>(packet.size(), event.u.Header.PayloadOffset));
  }
};

// What one search told.
struct Heard {
  std::vector<PlayedFrame> frames;
  std::vector<std::string> results;
  // "P" progress or end, "R" result, "F" frame, "E" frame without content.
  std::string order;

  // The values of an attribute over all Result elements.
  [[nodiscard]] std::vector<long> All(const std::string& attribute) const;
};

// A search request for some cameras' video inputs.
struct Ask {
  int type = 1;
  std::int64_t start = 0, end = 0;  // seconds
  int resolution = 0;
  std::string inputs = {};  // XML

  Ask& Video(const CameraConfig& camera, int input = 0,
             const std::vector<std::int64_t>& moments = {});
  [[nodiscard]] std::string Xml() const;
};

// The plug-in with a host that keeps what searches send, by a clock and files of the test.
class SearchTest : public SeamTest {
 protected:
  SearchTest();

  // Runs the search and returns what came.
  Heard Search(const Ask& ask);

  // Records frames of one camera in real time of the manual clock.
  void Record(const CameraConfig& camera, std::span<const Frame> frames);

  // Files that the plug-in keeps open besides a search's.
  std::size_t openWriters = 0;

 private:
  void Hear(const KelvoHostRequest& request);
  Heard told;
};

// Checks that the events are the frames, byte for byte and field for field.
void ExpectPlayed(const std::vector<PlayedFrame>& played, std::span<const Frame> given);

}  // namespace plugintest
