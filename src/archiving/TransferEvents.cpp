#include "archiving/TransferEvents.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "archiving/AwsAddress.h"
#include "host/Log.h"

namespace qvArchiving {

using Aws::Transfer::TransferDirection;
using Aws::Transfer::TransferHandle;
using qvsvr::kelvo::FormatFixed;
using qvsvr::kelvo::LogPrintf;
using qvsvr::kelvo::LogTrace;

namespace {

constexpr double kMegabit = 1048576.0;

bool IsOver(TransferStatus status) {
  return status != TransferStatus::NOT_STARTED && status != TransferStatus::IN_PROGRESS;
}

double Rate(std::uint64_t bytes, std::int64_t milliseconds) {
  if (bytes == 0 || milliseconds == 0) return 0.0;
  return static_cast<double>(bytes) * 8 / (static_cast<double>(milliseconds) / 1000.0) / kMegabit;
}

std::shared_ptr<TransferHandle> Writable(const TransferEvents::Handle& handle) {
  return std::const_pointer_cast<TransferHandle>(handle);
}

}  // namespace

TransferEvents::TransferEvents(IScanner& subject, std::string name, std::shared_ptr<ICache> store,
                               ScannerCallback sink, qv::kelvo::Clock& time)
    : fullName(std::move(name)),
      callback(std::move(sink)),
      notifies(callback || store != nullptr),
      clock(time),
      scanner(&subject),
      cache(std::move(store)) {}

void TransferEvents::Track(const AwsResult::Handle& handle) {
  const std::lock_guard guard(lock);
  if (started.size() == started.capacity()) {
    std::erase_if(started, [](const auto& transfer) { return transfer.expired(); });
  }
  started.push_back(handle);
}

void TransferEvents::Close() {
  std::shared_ptr<ICache> dropped;
  std::vector<std::weak_ptr<TransferHandle>> left;
  {
    std::unique_lock guard(lock);
    scanner = nullptr;
    dropped = std::move(cache);
    left.swap(started);
    gone.wait(guard, [this] {
      return std::all_of(inside.begin(), inside.end(),
                         [](std::thread::id id) { return id == std::this_thread::get_id(); });
    });
  }
  std::vector<std::shared_ptr<TransferHandle>> running;
  for (const auto& transfer : left) {
    if (auto handle = transfer.lock()) running.push_back(std::move(handle));
  }
  for (const auto& handle : running) handle->Cancel();
  // A library may drop those that haven't begun without ending them.
  for (const auto& handle : running) handle->WaitUntilFinished();
}

void TransferEvents::LogError(const char* what) const {
  LogPrintf(qvsvr::kelvo::LogError, "[%s] Transfer callback error: %s", fullName.c_str(), what);
}

void TransferEvents::OnTransferStatus(const Handle& handle) noexcept try {
  const std::shared_ptr<AwsResult> result = AwsResult::Of(*handle);
  if (result == nullptr) return;
  // The status of now: after the end, a late report of an earlier status tells of the end, too.
  const TransferStatus status = handle->GetStatus();
  if (!IsOver(status)) {
    result->MarkRunning();
  } else if (!result->BeginEnd()) {
    return;
  }
  if (status == TransferStatus::COMPLETED) OnCompleted(*result, *handle);
  Tell(result, handle, "Status");
  if (IsOver(status)) result->FulfilDone();
} catch (const std::exception& error) {
  LogError(error.what());
}

bool TransferEvents::Settle(AwsResult& result) {
  if (result.Download() == nullptr) return true;
  bool open = false;
  {
    const std::lock_guard guard(lock);
    open = scanner != nullptr;
  }
  bool well = false;
  if (open) {
    const std::lock_guard one(settling);
    well = result.Download()->Settle();
  }
  if (open && !well) LogError(("cannot write " + result.File()).c_str());
  result.NoteSettled(well);
  return well;
}

void TransferEvents::OnCompleted(AwsResult& result, const TransferHandle& handle) {
  result.StampEnd();
  if (!Settle(result)) return;
  const bool download = handle.GetTransferDirection() == TransferDirection::DOWNLOAD;
  if (download) AddToCache(result, handle);
  const std::uint64_t bytes = handle.GetBytesTotalSize();
  LogPrintf(LogTrace, "[%s] %s key=%s complete @ %s Mbps size=%llu", fullName.c_str(),
            download ? "DownloadFile" : "UploadFile", FromAws(handle.GetKey()).c_str(),
            FormatFixed(Rate(bytes, result.GetElapsedMs()), 2).c_str(),
            static_cast<unsigned long long>(bytes));
}

void TransferEvents::AddToCache(const AwsResult& result, const TransferHandle& handle) try {
  std::shared_ptr<ICache> store;
  {
    const std::lock_guard guard(lock);
    store = cache;
  }
  if (store == nullptr) return;
  ScannedFile file;
  file.path = result.File();
  file.name = file.path.filename().string();
  file.size = handle.GetBytesTotalSize();
  file.modified = clock.NowMs() / 1000;
  store->Add(file, 0);
} catch (const std::exception& error) {
  LogError(error.what());
}

void TransferEvents::Report(const Handle& handle, const char* what) noexcept try {
  if (const std::shared_ptr<AwsResult> result = AwsResult::Of(*handle)) Tell(result, handle, what);
} catch (const std::exception& error) {
  LogError(error.what());
}

void TransferEvents::Tell(const std::shared_ptr<AwsResult>& result, const Handle& handle,
                          const char* what) {
  if (!callback) return;
  const std::thread::id self = std::this_thread::get_id();
  IScanner* subject = nullptr;
  {
    const std::lock_guard guard(lock);
    if (scanner == nullptr) return;
    subject = scanner;
    inside.push_back(self);
  }
  try {
    result->SetHandle(Writable(handle));
    callback(*subject, AwsResult::Share(result, Writable(handle)), {{"Result", what}});
  } catch (const std::exception& error) {
    LogError(error.what());
  } catch (...) {
    LogError("unknown");
  }
  {
    const std::lock_guard guard(lock);
    inside.erase(std::find(inside.begin(), inside.end(), self));
  }
  gone.notify_all();
}

}  // namespace qvArchiving
