#include "archiving/AwsResult.h"

#include <chrono>
#include <utility>

#include "archiving/AwsAddress.h"

namespace qvArchiving {

namespace {

constexpr std::chrono::milliseconds kDoneTimeout(1000);

struct Shared {
  std::shared_ptr<AwsResult> result;
  AwsResult::Handle handle;
};

}  // namespace

std::string TransferStatusName(TransferStatus status) {
  switch (status) {
    case TransferStatus::EXACT_OBJECT_ALREADY_EXISTS:
      return "EXACT_OBJECT_ALREADY_EXISTS";
    case TransferStatus::NOT_STARTED:
      return "NOT_STARTED";
    case TransferStatus::IN_PROGRESS:
      return "IN_PROGRESS";
    case TransferStatus::CANCELED:
      return "CANCELED";
    case TransferStatus::COMPLETED:
      return "COMPLETED";
    case TransferStatus::ABORTED:
      return "ABORTED";
    default:
      return "FAILED";
  }
}

AwsResult::AwsResult(std::string localFile, bool notify, qv::kelvo::Clock& time,
                     std::shared_ptr<Landing> download)
    : startTime(time.SteadyNs()),
      file(std::move(localFile)),
      whenDone(done.get_future()),
      notifyDone(notify),
      landing(std::move(download)),
      settled(landing == nullptr ? Settled::Well : Settled::NotYet),
      clock(time) {}

std::shared_ptr<IResult> AwsResult::Share(const std::shared_ptr<AwsResult>& result,
                                          const Handle& handle) {
  auto both = std::make_shared<Shared>(Shared{result, handle});
  return {both, result.get()};
}

std::shared_ptr<AwsResult> AwsResult::First(const Aws::Transfer::TransferHandle& handle) {
  return std::dynamic_pointer_cast<AwsResult>(
      std::const_pointer_cast<Aws::Client::AsyncCallerContext>(handle.GetContext()));
}

std::shared_ptr<AwsResult> AwsResult::Of(const Aws::Transfer::TransferHandle& handle) {
  auto first = First(handle);
  if (first == nullptr) return {};
  const std::lock_guard guard(first->lock);
  return first->successor != nullptr ? first->successor : first;
}

AwsResult::Handle AwsResult::GetHandle() const {
  const std::lock_guard guard(lock);
  return handle.lock();
}

void AwsResult::SetHandle(const Handle& transfer) {
  const std::lock_guard guard(lock);
  handle = transfer;
}

void AwsResult::HandOn(const Aws::Transfer::TransferHandle& handle,
                       const std::shared_ptr<AwsResult>& next) {
  const auto first = First(handle);
  if (first == nullptr) return;
  next->running = false;
  std::shared_ptr<AwsResult> replaced;  // let go of without the lock
  const std::lock_guard guard(first->lock);
  replaced = std::exchange(first->successor, next);
}

bool AwsResult::BeginEnd() {
  return running && !ended.exchange(true);
}

void AwsResult::FulfilDone() {
  if (!fulfilled.exchange(true)) done.set_value(1);
}

bool AwsResult::WaitFor(std::chrono::milliseconds patience) {
  return GetHandle() == nullptr || whenDone.wait_for(patience) == std::future_status::ready;
}

void AwsResult::Wait() {
  const Handle transfer = GetHandle();
  if (transfer == nullptr) return;
  transfer->WaitUntilFinished();
  if (notifyDone || landing != nullptr) whenDone.wait_for(kDoneTimeout);
}

void AwsResult::Cancel() {
  if (const Handle transfer = GetHandle()) transfer->Cancel();
}

bool AwsResult::LockForCompletion() {
  const Handle transfer = GetHandle();
  return transfer != nullptr && transfer->LockForCompletion();
}

void AwsResult::ReleaseHandle() {
  SetHandle({});
  if (landing != nullptr) landing->Forget();
}

std::span<const std::byte> AwsResult::Content() const {
  return landing == nullptr ? std::span<const std::byte>() : landing->Content();
}

std::uint64_t AwsResult::GetBytesTransferred() const {
  const Handle transfer = GetHandle();
  return transfer == nullptr ? 0 : transfer->GetBytesTransferred();
}

std::uint64_t AwsResult::GetBytesTotalSize() const {
  const Handle transfer = GetHandle();
  return transfer == nullptr ? 0 : transfer->GetBytesTotalSize();
}

void AwsResult::GetLastError(std::string& text) const {
  if (const Handle transfer = GetHandle()) text = FromAws(transfer->GetLastError().GetMessage());
}

std::string AwsResult::GetId() const {
  const Handle transfer = GetHandle();
  return transfer == nullptr ? std::string() : FromAws(transfer->GetId());
}

std::string AwsResult::GetStatusName(TransferStatus status) const {
  return TransferStatusName(status);
}

TransferStatus AwsResult::GetStatus() const {
  const Handle transfer = GetHandle();
  if (transfer == nullptr) return TransferStatus::FAILED;
  const TransferStatus status = transfer->GetStatus();
  if (status != TransferStatus::COMPLETED || settled == Settled::Well) return status;
  return settled == Settled::Badly ? TransferStatus::FAILED : TransferStatus::IN_PROGRESS;
}

std::map<std::string, std::string> AwsResult::GetMetadata() const {
  std::map<std::string, std::string> copy;
  const Handle transfer = GetHandle();
  if (transfer == nullptr) return copy;
  for (const auto& [name, value] : transfer->GetMetadata()) copy[FromAws(name)] = FromAws(value);
  return copy;
}

std::int64_t AwsResult::GetElapsedMs() const {
  return (endTime - startTime) / 1'000'000;
}

}  // namespace qvArchiving
