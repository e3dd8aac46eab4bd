#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "nvrhost/Ffmpeg.h"
#include "nvrhost/PresentationTimes.h"
#include "nvrhost/SearchSession.h"

namespace nvrhost {

// Writes played frames into a file that FFmpeg's name rules choose (.mp4, .mkv, .mov): as they are,
// not encoded again. Everything throws std::runtime_error.
class Exporter {
 public:
  explicit Exporter(std::string toPath);
  ~Exporter();
  Exporter(const Exporter&) = delete;
  Exporter& operator=(const Exporter&) = delete;

  // A stream to come; before the first frame. One that the format can't hold is left out.
  void AddStream(std::uint32_t streamId, const hostkit::SearchResult& row, const std::string& name);
  void Take(const PlayedFrame& frame);
  // Writes what is left and closes the file.
  void Finish();

  [[nodiscard]] const std::string& Path() const { return path; }
  [[nodiscard]] std::uint64_t VideoFrames() const { return videoFrames; }
  // What was left out and why, one line each.
  [[nodiscard]] const std::vector<std::string>& Notices() const { return notices; }

 private:
  struct Track;
  Track* Find(std::uint32_t streamId);
  void TakeVideo(Track& track, const PlayedFrame& frame);
  void TakeAudio(Track& track, const PlayedFrame& frame);
  void DescribeVideo(Track& track, const PlayedFrame& frame);
  void Queue(Track& track, PacketPtr packet);
  void WriteHeader();
  void WriteReady();

  const std::string path;
  AVFormatContext* output = nullptr;
  std::vector<std::unique_ptr<Track>> tracks;
  std::vector<std::string> notices;
  bool headerWritten = false;
  std::int64_t originMs = -1;
  std::size_t queuedBytes = 0;
  std::uint64_t videoFrames = 0;
};

}  // namespace nvrhost
