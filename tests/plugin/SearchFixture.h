#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/plugin/PluginFixture.h"

namespace plugintest {

// One frame event as the host saw it, with what is in the packet.
struct PlayedFrame : PsFrame {
  explicit PlayedFrame(const KelvoHostRequest& request);

  KelvoHostRequest event{};
};

// What one search told.
struct Heard {
  std::vector<PlayedFrame> frames;
  std::vector<std::string> results;
  // "P" progress or end, "R" result, "F" frame, "E" frame without content.
  std::string order;
};

// A search request for the video of some cameras; times in seconds.
std::string Ask(int type, std::int64_t start, std::int64_t end,
                const std::vector<CameraConfig>& cameras,
                const std::vector<std::int64_t>& moments = {});

// The plug-in with a host that keeps what searches send, by a clock and files of the test.
class SearchTest : public SeamTest {
 protected:
  SearchTest();

  // Runs the search and returns what came.
  Heard Search(const std::string& request);

  // Records frames of one camera in real time of the manual clock, then starts again for searches.
  void Record(const CameraConfig& camera, std::span<const Frame> frames);

  // Files that the plug-in keeps open besides a search's.
  std::size_t openWriters = 0;

 private:
  void Hear(const KelvoHostRequest& request);
  Heard told;
};

// Checks that the events are the frames, byte for byte and field for field.
void ExpectPlayed(std::span<const PlayedFrame> played, std::span<const Frame> given);

}  // namespace plugintest
