#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "host/HostLink.h"
#include "media/RunTables.h"
#include "record/CRecordMgr.h"
#include "storage/CFileSystem.h"

namespace qvsvr::kelvo {

// The plug-in between Load and Unload: the host's face for the rest, and the owner of the rest. Its
// members end in the reverse of their order: the record manager first, which joins the worker and
// ends the files, then the storage that they lie in, last the tables of recordings that both use.
//
// Open may fail and be tried again; a stop may come at any time, also during Open, and is the
// queue's flag, for the worker and all searches. PluginLife owns it and sees to it that no call is
// inside when it ends. Any thread, but for the constructor and the destructor.
class CFilePlugin : public HostLink {
 public:
  // Borrows both for its life. Blocks come by `queue`.
  CFilePlugin(qv::kelvo::Platform& platform, RecordQueue& queue);

  [[nodiscard]] bool IsStopping() const override;

  // Announces the module, finds the drives and starts the worker. A second call throws
  // std::logic_error; after one that failed by throwing anything the plug-in is closed to blocks
  // until another one succeeds. `version` goes into the announcement.
  void Open(const char* version);

  // Makes the worker and all searches end; doesn't wait. Any thread.
  void Close() { Queue.Stop(); }

  // Runs one search on the caller's thread; its outcome goes to the host by events. Any thread,
  // several at once.
  std::uint32_t Search(std::string_view text, std::uint32_t requestId);

  qv::kelvo::RunTables ClosedTables;  // of recordings, for all searches
  CFileSystem FileSystem;
  CRecordMgr RecordMgr;

 private:
  void Announce(const char* version);

  // What stands between Load and Unload besides the stop, which may come at any time.
  enum class Phase { Loaded, Opening, Open, Failed };

  qv::kelvo::Platform& Platform;
  RecordQueue& Queue;
  std::atomic<Phase> phase{Phase::Loaded};
};

}  // namespace qvsvr::kelvo
