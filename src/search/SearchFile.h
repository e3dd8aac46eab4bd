#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "archiving/IScanner.h"
#include "media/PSReader.h"
#include "search/PrepareFile.h"
#include "search/SearchTargetFileSystem.h"

namespace qvsvr::kelvo {

// One file under playback, with the frame that is ready to be sent. Holds room for the largest
// frame, taken once; a frame costs no allocation. A local file is read some frames at a time.
//
// A file of a bucket has its index and head here, and of its frames whatever was played before.
// When one is missing, the stretch of about 150 frames from there on is asked for and waited for,
// and the next one is on its way while it plays. The longer it plays, the more are (three at most)
// and the longer they get: a look at one picture fetches little, and playing on is as fast as the
// line. What has just come is played from memory, where it still is. No place is asked for more
// than twice, however damaged what comes is. Dropping the object gives up what is on its way.
class SearchFile {
 public:
  // Borrows `target` for its life. Takes the file over.
  SearchFile(SearchTargetFileSystem& fileSystem, PlaybackFile&& file);
  SearchFile(const SearchFile&) = delete;
  SearchFile& operator=(const SearchFile&) = delete;

  // Opens the file and fetches the first frame. 0, a result of PSReader, or -1 when there is
  // nothing to send.
  [[nodiscard]] int Open();

  // Fetches the next frame to send; 0 on success, after which `Frame` tells of it. Frames of a
  // bucket are brought down first, which blocks.
  [[nodiscard]] int AdvanceFrame();

  // The frame that is ready: fields, packet and metadata are good until AdvanceFrame.
  [[nodiscard]] const qv::kelvo::PSReadFrame& Frame() const { return frame; }
  [[nodiscard]] const std::byte* Packet() const { return frame.content.data(); }
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
  using Scanner = std::shared_ptr<qvArchiving::IScanner>;
  using Fetch = qv::kelvo::BucketAccess::Fetch;
  // Frames on their way from a bucket. Dropping it gives them up.
  struct Range {
    std::uint32_t first = 0;  // positions
    std::uint32_t last = 0;
    Scanner holder;
    Fetch fetch;
  };

  [[nodiscard]] int ReadFrame();
  // Reads the frame at `position`, which is brought down first if it isn't here.
  [[nodiscard]] int LoadFrame();
  // False for a frame that isn't here, or is damaged.
  [[nodiscard]] bool IsGood(int error) const;
  // Brings down the frame at `position` and, where frames follow each other, some more. `error` is
  // what reading it gave; it stays the result of a local file.
  [[nodiscard]] int FetchFrames(int error);
  // Opens what stands under the file's name now, at the same place.
  [[nodiscard]] bool Reopen();
  // Begins to fetch the ranges that follow, while fewer than `rangesAhead` are on their way.
  void FetchAhead(const Scanner& holder);
  // Begins to fetch from `first` to the frame at position `last`, where the reader stands then.
  [[nodiscard]] int StartFetch(const Scanner& holder, const qv::kelvo::PSReadFrame& first,
                               std::uint32_t last, Fetch& fetch);
  [[nodiscard]] int AwaitFirstAhead();
  // Waits for the frames up to position `last`, which are played from memory as far as they are
  // there.
  [[nodiscard]] int Await(const Scanner& holder, Fetch&& fetch, std::uint32_t last);
  // False for a frame at `position` of which only the beginning may be here.
  [[nodiscard]] bool IsWhole();
  // Whether the stream begins behind the frame at `place`.
  [[nodiscard]] bool IsPreRoll(std::uint32_t place);

  SearchTargetFileSystem& target;
  PlaybackFile file;
  qv::kelvo::PSReader reader;
  std::array<std::uint32_t, qv::kelvo::kStreamCount> streamStart{};
  std::uint32_t position = 0;  // the next one
  std::uint32_t framesSent = 0;
  bool mayBeCut = false;                   // frames that follow each other, of a bucket
  bool isHere = false;                     // frames that follow each other, of a local file
  std::uint32_t fetchedEnd = 0;            // behind the last position that this search fetched
  std::uint32_t fetchedTwiceEnd = 0;       // the same for those whose first fetch wasn't good
  std::deque<Range> ahead;                 // behind `position`, one behind the other
  std::size_t rangesAhead = 0;             // grows while one range after the other is played
  std::uint32_t framesAhead = 0;           // in the next one; grows likewise
  std::uint32_t nextRange = 0;             // position of the first frame behind those asked for
  qv::kelvo::PSReader::Place rangeEnd;     // of the last frame asked for
  Fetch playing;                           // what was waited for last
  std::vector<qv::kelvo::HeldBytes> held;  // of it
  std::unique_ptr<std::byte[]> packetBuffer;
  std::array<std::byte, 128> userDataBuffer;
  qv::kelvo::PSReadFrame frame;
  qv::kelvo::UtcMs frameTime = 0;
};

}  // namespace qvsvr::kelvo
