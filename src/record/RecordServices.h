#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/ICoreEventer.h"
#include "media/RunTables.h"
#include "platform/Platform.h"
#include "record/CRecordAlarms.h"
#include "record/RecordStats.h"
#include "record/Reservations.h"
#include "storage/CFileSystem.h"
#include "storage/RoomMaker.h"

namespace qvsvr::kelvo {

// Asks storage for volumes on behalf of all streams, so that what it costs while none can be had
// doesn't grow with the streams: what one of them was told in vain holds for all until the next
// message. A volume that was found is asked for anew each time, since the file that is opened there
// reserves room. Worker thread only.
class RecordVolumes {
 public:
  // Borrows both for its life.
  RecordVolumes(CFileSystem& storage, const IRecordManager& recordManager)
      : fileSystem(storage), manager(recordManager) {}

  // Forgets the answer: the next question goes to storage again.
  void BeginMessage() { answer.reset(); }

  // The volume for one more file; empty when there is none, or none yet. An empty answer holds
  // until the next message, whoever asks.
  [[nodiscard]] const std::string& Take() { return answer && answer->empty() ? *answer : Ask(); }
  // The same for a stream that opens no file: any answer of this message will do.
  [[nodiscard]] const std::string& Look() { return answer ? *answer : Ask(); }

  // Whether a question of this message was answered in vain.
  [[nodiscard]] bool Failed() const { return answer && answer->empty(); }
  // Whether the search for room that the last answer left open goes on: who has no file may get one
  // soon.
  [[nodiscard]] bool Searching() const { return searching; }

 private:
  static constexpr std::int64_t kFileGB = 1;  // room that a drive must have for one more file

  const std::string& Ask() {
    searching = false;
    answer.reset();
    answer = fileSystem.GetRecordVolume(&manager, kFileGB);
    searching = answer->empty() && fileSystem.StillSearching();
    return *answer;
  }

  CFileSystem& fileSystem;
  const IRecordManager& manager;
  std::optional<std::string> answer;  // of this message
  bool searching = false;
};

// What record streams and the configuration need of the rest. Owned by CRecordMgr and alive longer
// than every stream. Worker thread only.
struct RecordServices {
  ICoreEventer& Core;
  CFileSystem& FileSystem;
  const IRecordManager& Manager;
  RecordVolumes& Volumes;
  qv::kelvo::Platform& Platform;
  CRecordAlarms& Alarms;
  ReservationList& Reservations;
  RecordStats& Stats;
  qv::kelvo::RunTables* ClosedTables = nullptr;  // learns of each file that ends; may be null
};

}  // namespace qvsvr::kelvo
