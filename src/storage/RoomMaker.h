#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "storage/Catalogue.h"

namespace qvsvr::kelvo {

// What storage asks of the record manager, which stands above it and implements this. Worker thread
// only.
class IRecordManager {
 public:
  virtual ~IRecordManager() = default;

  // Gigabytes set aside on a volume, by its name.
  [[nodiscard]] virtual std::int64_t ReservedGB(const std::string& volume) const = 0;

  // Whether the recording at that path is being written.
  [[nodiscard]] virtual bool IsBeingWritten(const std::string& /*path*/) const { return false; }

  // True once the plug-in was told to stop. Any thread.
  [[nodiscard]] virtual bool IsStopping() const = 0;
};

// Deletes the oldest recordings that nothing protects, across the drives of a request, until one of
// them has room: the drive on which the last one lay. The oldest go first wherever they lie, so
// that all cameras keep footage for as long.
//
// It never deletes what is being written, and doesn't try again for twenty minutes what couldn't be
// removed, since each try may take long and would be made for each stream. That nothing may go is
// asked anew after five seconds at most: meanwhile every stream without a file asks for room after
// every message. One call holds the worker up for 60 ms; what is left is done by the next ones.
// Owned by CFileSystem; worker thread only.
class RoomMaker {
 public:
  // Borrows both for its life.
  RoomMaker(qv::kelvo::Platform& platform, Catalogue& catalogue);

  struct Request {
    const IRecordManager& manager;
    std::vector<std::string> drives;  // names of those that recordings may be deleted on
    std::int64_t desiredGB = 0;
    std::function<std::int64_t(const std::string&)> usableGB;  // measures one drive
    // Looks and deletes for as long as it takes, not only for a call's time.
    bool patient = false;
  };
  // The drive that has the room now; empty when nothing more can be deleted, when the manager is
  // stopping, or when the call's time was over first: Undecided, and the next call goes on.
  [[nodiscard]] std::string MakeRoom(const Request& request);

  [[nodiscard]] bool Undecided() const { return undecided; }

  // Forgets after twenty minutes what could not be removed. To be called before each choice of a
  // volume, with room or without.
  void ForgetOldFailures();

  // What was passed over since the answer before: each protected recording once for each walk over
  // it, and removals that failed.
  [[nodiscard]] std::uint32_t ProtectedSkips() const { return skips; }
  [[nodiscard]] std::uint32_t Failures() const { return failures; }

  // When room was last made, seconds since 1970, and how often; kNoTime and 0 after Reset.
  [[nodiscard]] std::int64_t LastTime() const { return lastRoomMakingTime; }
  [[nodiscard]] std::uint64_t Count() const { return roomMakingCount; }
  void Reset();

 private:
  [[nodiscard]] bool Remove(const Catalogue::Answer& oldest);

  qv::kelvo::Platform& platform;
  Catalogue& catalogue;
  std::set<std::string> failedFiles;      // that couldn't be removed
  std::int64_t firstFailureNs = 0;        // monotonic; of the first of `failedFiles`
  std::optional<std::int64_t> nothingNs;  // monotonic; when it was last seen that nothing may go
  std::uint32_t skips = 0;
  std::uint32_t failures = 0;
  bool undecided = false;
  std::int64_t lastRoomMakingTime = qv::kelvo::kNoTime;
  std::uint64_t roomMakingCount = 0;
};

// Whether a volume with room could be found, and how often that ceased to be so. Worker thread
// only.
struct RecordingState {
  bool recordingNotPossible = false;
  std::uint32_t recordNotPossibleCount = 0;  // nothing reads it

  // Takes the outcome of one choice.
  void Note(bool found);
};

}  // namespace qvsvr::kelvo
