#pragma once

#include <cstdint>
#include <string_view>

#include "host/ICoreEventer.h"
#include "record/CRecordMgr.h"
#include "storage/CFileSystem.h"

namespace qvsvr::kelvo {

// The plug-in between Load and Unload: the host's face for the rest, and the owner of the rest. The
// record manager is destroyed first.
class CFilePlugin : public ICoreEventer {
 public:
  // Borrows `platform` for its life.
  explicit CFilePlugin(qv::kelvo::Platform& platform);

  std::uint32_t SendHostMessage(const KelvoHostRequest& request, KelvoHostReply& reply) override;
  void SendXmlEvent(const std::string& text, std::uint32_t eventClass) override;
  void DecrementReference(void* buffer) override;
  std::uint32_t GetCoreTime(std::int64_t& seconds, std::uint16_t& milliseconds) override;
  [[nodiscard]] bool IsStopping() const override;

  // Announces the module, finds the drives and starts the worker. A second call throws
  // std::logic_error.
  void Open(const char* version);

  // Runs one search on the caller's thread; its outcome goes to the host by events. Any thread,
  // several at once.
  std::uint32_t Search(std::string_view text, std::uint32_t requestId);

  CFileSystem FileSystem;
  CRecordMgr RecordMgr;

 private:
  void Announce(const char* version);

  qv::kelvo::Platform& Platform;
  bool Opened = false;
};

}  // namespace qvsvr::kelvo
