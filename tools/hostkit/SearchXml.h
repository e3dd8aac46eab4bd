#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace hostkit {

// The documents of a search: what a host asks, and the plug-in's answer.

// One video or audio input of a device.
struct SearchInput {
  std::uint32_t provider = 0x00110000;  // ID of the Devices element
  int device = 0;
  int context = 0;
  bool audio = false;
  int number = 0;
  // Video only: moments wanted as key frames, seconds since 1970 UTC, ascending.
  std::vector<std::int64_t> moments;
};

struct SearchRequest {
  int type = 0;                     // 0 lists footage; anything else streams frames, too
  std::int64_t start = 0, end = 0;  // seconds since 1970 UTC
  int resolution = 0;               // seconds; 0 leaves it out
  bool local = true;                // false asks the archives only
  std::vector<SearchInput> inputs;  // those of one device side by side
};
[[nodiscard]] std::string RequestXml(const SearchRequest& request);

// One Result element with the input around it.
struct SearchResult {
  SearchInput input;
  std::int64_t start = 0, end = 0;
  int count = 0;  // frames; 0 in a listing
  unsigned flags = 0;
  // Not in a listing.
  std::uint32_t streamId = 0;
  int standard = 0;
  int width = 0, height = 0;                // video
  int sampleRate = 0, bufSizeSamples = -1;  // audio; -1: not told
};

struct SearchResults {
  int type = -1;
  int thumbnail = -1;  // -1: not told
  std::vector<SearchResult> rows;
};
// Throws std::runtime_error for a text that isn't a result document.
[[nodiscard]] SearchResults ParseResults(const std::string& xml);

}  // namespace hostkit
