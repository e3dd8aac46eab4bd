#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "media/PSReader.h"
#include "search/PlaybackFile.h"
#include "search/SearchTargetFileSystem.h"

namespace qvsvr::kelvo {

// One file under playback, with the frame that is ready to be sent. Holds room for the largest
// frame, taken once; a frame costs no allocation.
class SearchFile {
 public:
  // Borrows `target` for its life. Takes the file over.
  SearchFile(SearchTargetFileSystem& fileSystem, PlaybackFile&& file);

  // Opens the file and fetches the first frame. 0, a result of PSReader, or -1 when there is
  // nothing to send.
  [[nodiscard]] int Open();

  // Fetches the next frame to send; 0 on success, after which `Frame` tells of it. Frames of a
  // bucket are brought down first, which blocks.
  [[nodiscard]] int AdvanceFrame();

  // The frame that is ready: fields, packet and metadata are good until AdvanceFrame.
  [[nodiscard]] const qv::kelvo::PSReadFrame& Frame() const { return frame; }
  [[nodiscard]] const std::byte* Packet() const { return packetBuffer.get(); }
  [[nodiscard]] const std::byte* UserData() const { return userDataBuffer.data(); }
  [[nodiscard]] qv::kelvo::UtcMs FrameTime() const { return frameTime; }
  // The stream that the frame belongs to, as the host knows it.
  [[nodiscard]] qv::kelvo::StreamID GetStreamId() const;

  [[nodiscard]] const std::string& Path() const { return file.path; }
  // Frames that are still owed, the ready one not among them.
  [[nodiscard]] std::uint32_t Remaining() const { return file.endPosition - position; }
  void NoteSent() { ++framesSent; }
  [[nodiscard]] std::uint32_t FramesSent() const { return framesSent; }

 private:
  [[nodiscard]] int ReadFrame();
  [[nodiscard]] int FetchFromArchive(bool& fetched);
  // Whether the stream begins behind the frame at `place`.
  [[nodiscard]] bool IsPreRoll(std::uint32_t place);

  SearchTargetFileSystem& target;
  PlaybackFile file;
  qv::kelvo::PSReader reader;
  std::array<std::uint32_t, qv::kelvo::kStreamCount> streamStart{};
  std::uint32_t position = 0;  // the next one
  std::uint32_t framesSent = 0;
  std::unique_ptr<std::byte[]> packetBuffer;
  std::array<std::byte, 128> userDataBuffer;
  qv::kelvo::PSReadFrame frame;
  qv::kelvo::UtcMs frameTime = 0;
};

}  // namespace qvsvr::kelvo
