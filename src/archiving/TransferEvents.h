#pragma once

#include <aws/transfer/TransferManager.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "archiving/AwsResult.h"
#include "archiving/ICache.h"
#include "archiving/IScanner.h"

namespace qvArchiving {

// What becomes of the transfer library's reports. They can come twice, late, and when the scanner
// is gone; only the library and the scanner hold this object. Any thread.
class TransferEvents {
 public:
  using Handle = std::shared_ptr<const Aws::Transfer::TransferHandle>;

  // `cache` and `sink` may be empty.
  TransferEvents(IScanner& subject, std::string name, std::shared_ptr<ICache> store,
                 ScannerCallback sink, qv::kelvo::Clock& time);

  // Whether anybody is told of the end of a transfer.
  [[nodiscard]] bool Notifies() const { return notifies; }

  void OnTransferStatus(const Handle& handle) noexcept;
  void OnTransferProgress(const Handle& handle) noexcept { Report(handle, "Progress"); }
  void OnTransferError(const Handle& handle) noexcept { Report(handle, "Error"); }

  // Forgets scanner and cache, when nobody is being told on another thread any more.
  void Close();

 private:
  void OnCompleted(AwsResult& result, const Aws::Transfer::TransferHandle& handle);
  void AddToCache(const AwsResult& result, const Aws::Transfer::TransferHandle& handle);
  void Report(const Handle& handle, const char* what) noexcept;
  void Tell(const std::shared_ptr<AwsResult>& result, const Handle& handle, const char* what);
  void LogError(const char* what) const;

  const std::string fullName;
  const ScannerCallback callback;
  const bool notifies;
  qv::kelvo::Clock& clock;

  std::mutex lock;
  std::condition_variable left;
  IScanner* scanner;
  std::shared_ptr<ICache> cache;
  std::vector<std::thread::id> inside;  // threads that are calling back
};

}  // namespace qvArchiving
