#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace nvrhost {

// What one recording (.ps with its .psi) holds, read by this tool's own decoder so that it can
// witness against the writer.
struct RecordingFile {
  static constexpr std::size_t kStreams = 32;
  static constexpr std::size_t kFirstAudio = 16;

  struct Stream {
    std::array<std::uint64_t, 4> frames{};  // by frame type
    std::int64_t firstMs = 0, lastMs = 0;   // since 1970 UTC; meaningless without frames
    std::size_t clips = 0;                  // continuous stretches; counted once a file is closed
    unsigned channel = 0, encoder = 0, flags = 0;
    unsigned codec = 0;
    int width = 0, height = 0, sampleRate = 0;
    std::string name;
    [[nodiscard]] std::uint64_t Total() const {
      return frames[0] + frames[1] + frames[2] + frames[3];
    }
  };

  std::string path;
  std::uint32_t id = 0;  // from the name, 0 if it tells none
  std::uint64_t mediaBytes = 0, indexBytes = 0;
  bool closed = false;  // the head of the index has its counts
  std::string fault;    // why nothing could be read, or what disagrees; empty if all is well
  std::array<Stream, kStreams> streams{};
  [[nodiscard]] std::uint64_t Total() const;
};

// Never throws for what a file holds.
[[nodiscard]] RecordingFile ReadRecording(const std::string& mediaPath);
// Only the streams' setup and names: no frames, no times.
[[nodiscard]] RecordingFile ReadRecordingHead(const std::string& mediaPath);

// The media files below a directory, sorted by path; throws boost::filesystem::filesystem_error.
[[nodiscard]] std::vector<std::string> FindRecordings(const std::string& directory);

}  // namespace nvrhost
