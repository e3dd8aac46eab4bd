#pragma once

#include <aws/transfer/TransferManager.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "archiving/AwsCache.h"
#include "archiving/AwsResult.h"

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

  // Takes note of a transfer that was started.
  void Track(const AwsResult::Handle& handle);
  // Forgets scanner and cache, so that nobody else is told and what comes down from then on doesn't
  // settle; waits for those that are being told on other threads; then cancels what is under way
  // and waits for its end.
  void Close();

 private:
  [[nodiscard]] bool Settle(AwsResult& result);
  void OnCompleted(AwsResult& result, const Aws::Transfer::TransferHandle& handle);
  void AddToCache(const AwsResult& result, const Aws::Transfer::TransferHandle& handle);
  void Report(const Handle& handle, const char* what) noexcept;
  void Tell(const std::shared_ptr<AwsResult>& result, const Handle& handle, const char* what);
  void LogError(const char* what) const;

  const std::string fullName;
  const ScannerCallback callback;
  const bool notifies;
  qv::kelvo::Clock& clock;

  // One download takes its place at a time. Threads that write the pages of one file at once would
  // spin for it: a twelfth of what a playback costs.
  std::mutex settling;
  std::mutex lock;
  std::condition_variable gone;
  IScanner* scanner;
  std::shared_ptr<ICache> cache;
  std::vector<std::thread::id> inside;  // threads that are calling back
  std::vector<std::weak_ptr<Aws::Transfer::TransferHandle>> started;
};

}  // namespace qvArchiving
