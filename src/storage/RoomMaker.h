#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "storage/DriveTable.h"
#include "storage/IRecordManager.h"
#include "storage/OldestFileWalker.h"

namespace qvsvr::kelvo {

// Deletes the oldest recordings that nothing protects, across all volumes, until a drive has room.
// Worker thread only.
class RoomMaker {
 public:
  // Borrows the services for its life.
  explicit RoomMaker(const WalkServices& borrowed);

  struct Request {
    const IRecordManager& manager;
    const std::map<std::string, DriveRecord>& drives;
    std::vector<std::string> volumes;  // names of drives that recordings may be deleted on
    std::int64_t desiredGB = 0;
    std::function<std::int64_t(const std::string&)> usableGB;  // measures one drive
    // Whether deleting could ever help: false when even an empty drive would be too small.
    bool possible = true;
    // Looks for as long as it takes, not only for a moment.
    bool patient = false;
  };
  // The drive that has the room now; empty when nothing more can be deleted, when the manager is
  // stopping, or when nothing was found yet and the next call has to go on. Blocks for as long as
  // deleting takes.
  [[nodiscard]] std::string MakeRoom(const Request& request);

  // Whether the last run left open if something can be deleted.
  [[nodiscard]] bool Undecided() const { return undecided; }

  // A search that takes longer goes on in a later call, after a pause that the worker has for
  // frames. What comes while nothing was found is lost, so the search gets the greater part.
  static constexpr std::int64_t kSearchNs = 60'000'000;
  static constexpr std::int64_t kPauseNs = 15'000'000;

  // To be called before each choice of a volume, with room or without.
  void ForgetOldFailures() { walker.ForgetOldFailures(); }

  // Whether the last run passed anything over.
  [[nodiscard]] std::uint32_t ProtectedSkips() const {
    return walker.bookmarkSkips + walker.retentionSkips;
  }
  [[nodiscard]] std::uint32_t Failures() const { return failures; }

  // When room was last made, seconds since 1970, and how often; kNoTime and 0 after Reset.
  [[nodiscard]] std::int64_t LastTime() const { return lastRoomMakingTime; }
  [[nodiscard]] std::uint64_t Count() const { return roomMakingCount; }
  void Reset();

 private:
  [[nodiscard]] std::string Delete(const Request& request);

  WalkServices services;
  OldestFileWalker walker;
  std::uint32_t failures = 0;
  bool undecided = false;
  std::int64_t resumeNs = 0;  // monotonic; when a paused search goes on
  std::int64_t lastRoomMakingTime = kNoTime;
  std::uint64_t roomMakingCount = 0;
};

}  // namespace qvsvr::kelvo
