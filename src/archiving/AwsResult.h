#pragma once

#include <aws/core/client/AsyncCallerContext.h>
#include <aws/transfer/TransferHandle.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <string>

#include "archiving/IResult.h"
#include "archiving/Landing.h"
#include "platform/Clock.h"

namespace qvArchiving {

// One transfer. The library carries it as the transfer's context, so that callbacks find it; it
// knows the library's handle only weakly, or the two would keep each other. What callers get is
// made by Share, which keeps both. Any thread.
class AwsResult : public IResult, public Aws::Client::AsyncCallerContext {
 public:
  using Handle = std::shared_ptr<Aws::Transfer::TransferHandle>;

  // `localFile` with forward slashes. With `notify`, Wait also waits for those who are told. A
  // download is complete once it has settled.
  AwsResult(std::string localFile, bool notify, qv::kelvo::Clock& time,
            std::shared_ptr<Landing> download);

  // The result as a caller holds it, with the handle kept for as long.
  static std::shared_ptr<IResult> Share(const std::shared_ptr<AwsResult>& result,
                                        const Handle& handle);
  // The result that the library's callbacks are about: of a repeated transfer the latest one. Null
  // if there is none.
  static std::shared_ptr<AwsResult> Of(const Aws::Transfer::TransferHandle& handle);

  void Wait() override;
  void Cancel() override;
  bool LockForCompletion() override;
  void ReleaseHandle() override;
  [[nodiscard]] std::uint64_t GetBytesTransferred() const override;
  [[nodiscard]] std::uint64_t GetBytesTotalSize() const override;
  void GetLastError(std::string& text) const override;
  [[nodiscard]] std::string GetId() const override;
  [[nodiscard]] std::string GetStatusName(TransferStatus status) const override;
  [[nodiscard]] TransferStatus GetStatus() const override;
  [[nodiscard]] std::map<std::string, std::string> GetMetadata() const override;
  [[nodiscard]] std::int64_t GetElapsedMs() const override;
  bool WaitFor(std::chrono::milliseconds patience) override;
  [[nodiscard]] std::span<const std::byte> Content() const override;

  [[nodiscard]] const std::string& File() const { return file; }
  [[nodiscard]] const std::shared_ptr<Landing>& Download() const { return landing; }
  [[nodiscard]] Handle GetHandle() const;
  void SetHandle(const Handle& transfer);

  // Callbacks about a transfer that is about to be repeated go to `next` from now on.
  static void HandOn(const Aws::Transfer::TransferHandle& handle,
                     const std::shared_ptr<AwsResult>& next);

  // The transfer was seen to run: from now on it can end.
  void MarkRunning() { running = true; }
  // True for the first who sees the end of the transfer.
  [[nodiscard]] bool BeginEnd();
  void StampEnd() { endTime = clock.SteadyNs(); }
  // Whether the bytes of a completed download have come to where they belong.
  void NoteSettled(bool well) { settled = well ? Settled::Well : Settled::Badly; }
  // Everybody has been told of the end.
  void FulfilDone();

 private:
  // The result that the transfer was begun with.
  static std::shared_ptr<AwsResult> First(const Aws::Transfer::TransferHandle& handle);

  mutable std::mutex lock;  // handle and successor
  std::weak_ptr<Aws::Transfer::TransferHandle> handle;
  std::shared_ptr<AwsResult> successor;
  const std::int64_t startTime;
  std::atomic<std::int64_t> endTime{0};
  const std::string file;
  std::promise<int> done;
  const std::shared_future<int> whenDone;
  const bool notifyDone;
  std::atomic<bool> fulfilled{false};
  std::atomic<bool> running{true};  // false: a late report on the earlier run may still come
  std::atomic<bool> ended{false};
  const std::shared_ptr<Landing> landing;
  enum class Settled { NotYet, Well, Badly };
  std::atomic<Settled> settled;
  qv::kelvo::Clock& clock;
};

}  // namespace qvArchiving
