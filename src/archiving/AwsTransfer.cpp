#include <boost/filesystem/operations.hpp>
#include <exception>
#include <stdexcept>

#include "archiving/AwsAddress.h"
#include "archiving/AwsScanner.h"
#include "archiving/CLocalDiskScanner.h"
#include "archiving/Landing.h"
#include "host/Log.h"

namespace qvArchiving {

namespace fs = boost::filesystem;
using Aws::Transfer::DownloadConfiguration;
using qvsvr::kelvo::LogPrintf;
using qvsvr::kelvo::LogTrace;

namespace {

constexpr char kContentType[] = "application/octet-stream";

std::shared_ptr<AwsResult> AsAwsResult(const std::shared_ptr<IResult>& result) {
  auto own = std::dynamic_pointer_cast<AwsResult>(result);
  if (own == nullptr) throw std::invalid_argument("no transfer of a bucket");
  return own;
}

}  // namespace

std::shared_ptr<AwsResult> AwsScanner::NewResult(const std::string& file,
                                                 std::shared_ptr<Landing> landing) const {
  return std::make_shared<AwsResult>(file, events->Notifies(), platform.clock, std::move(landing));
}

std::shared_ptr<IResult> AwsScanner::Started(const std::shared_ptr<AwsResult>& result,
                                             const AwsResult::Handle& handle) {
  result->SetHandle(handle);
  events->Track(handle);
  return AwsResult::Share(result, handle);
}

std::shared_ptr<AwsResult> AwsScanner::NextResult(const std::shared_ptr<AwsResult>& earlier) {
  const AwsResult::Handle handle = earlier->GetHandle();
  if (handle == nullptr) throw std::invalid_argument("the transfer was released");
  const TransferStatus status = handle->GetStatus();
  if (status != TransferStatus::FAILED && status != TransferStatus::CANCELED &&
      status != TransferStatus::ABORTED) {
    throw std::logic_error("the transfer has not failed");
  }
  auto next = NewResult(earlier->File(), earlier->Download());
  next->SetHandle(handle);
  AwsResult::HandOn(*handle, next);
  return next;
}

std::shared_ptr<IResult> AwsScanner::Upload(
    const fs::path& local, const fs::path& remote,
    const std::map<std::string, std::string>& metadata) try {
  return StartUpload(local, remote, metadata);
} catch (const std::exception& reason) {
  Raised("Upload", reason, nullptr);
  return {};
}

std::shared_ptr<IResult> AwsScanner::StartUpload(
    const fs::path& local, const fs::path& remote,
    const std::map<std::string, std::string>& metadata) {
  std::string key = MakeKey(remote);
  if (SuppressesWorkingFiles() && EraseWorking(key)) RememberWorking(remote);
  const std::string file = ForwardSlashes(local);
  const std::uint64_t size = fs::file_size(file);
  LogPrintf(LogTrace, "[%s] Upload old=%s new=%s size=%llu", Name(), file.c_str(), key.c_str(),
            static_cast<unsigned long long>(size));
  Aws::Map<Aws::String, Aws::String> values;
  for (const auto& [name, value] : metadata) values[ToAws(name)] = ToAws(value);
  const auto result = NewResult(file);
  const auto handle = transferManager->UploadFile(ToAws(file), ToAws(bucket), ToAws(key),
                                                  kContentType, values, result);
  return Started(result, handle);
}

std::shared_ptr<IResult> AwsScanner::Download(const fs::path& remote, const fs::path& local,
                                              std::int64_t offset, std::int64_t size) try {
  return StartDownload(remote, local, offset, size);
} catch (const std::exception& reason) {
  Raised("Download", reason, nullptr);
  return {};
}

std::shared_ptr<IResult> AwsScanner::StartDownload(const fs::path& remote, const fs::path& local,
                                                   std::int64_t offset, std::int64_t size) {
  const std::string key = MakeKey(remote);
  const std::string file = ForwardSlashes(local);
  const bool whole = offset == 0 && size == 0;
  if (whole) {
    LogPrintf(LogTrace, "[%s] Download remote=%s local=%s", Name(), remote.string().c_str(),
              file.c_str());
  } else {
    LogPrintf(LogTrace, "[%s] Download remote=%s local=%s offset=%lld size=%lld", Name(),
              remote.string().c_str(), file.c_str(), static_cast<long long>(offset),
              static_cast<long long>(size));
  }
  if (offset < 0 || size < 0) throw std::invalid_argument("negative range");
  std::string ignored;
  CLocalDiskScanner().CreateDirectories(local.parent_path(), ignored);
  const auto first = static_cast<std::uint64_t>(offset);
  const auto bytes = static_cast<std::uint64_t>(size);
  std::function<void()> whenFull;
  if (cache != nullptr) {
    cache->MakeRoom(bytes);
    whenFull = [store = cache] { store->GiveUpTenth(); };
  }
  const auto landing = std::make_shared<Landing>(
      platform.mediaFiles, Landing::Place{file, first, bytes}, whenFull, keptBytes);
  const auto stream = [landing] { return landing->NewStream(); };
  const auto result = NewResult(file, landing);
  if (whole) {
    return Started(result,
                   transferManager->DownloadFile(ToAws(bucket), ToAws(key), stream,
                                                 DownloadConfiguration(), ToAws(file), result));
  }
  return Started(result,
                 transferManager->DownloadFile(ToAws(bucket), ToAws(key), first, bytes, stream,
                                               DownloadConfiguration(), ToAws(file), result));
}

std::shared_ptr<IResult> AwsScanner::RetryUpload(const std::shared_ptr<IResult>& earlier) try {
  const auto result = AsAwsResult(earlier);
  LogPrintf(LogTrace, "[%s] RetryUpload local=%s", Name(), result->File().c_str());
  const auto next = NextResult(result);
  const auto handle = transferManager->RetryUpload(ToAws(result->File()), result->GetHandle());
  return Started(next, handle);
} catch (const std::exception& reason) {
  Raised("RetryUpload", reason, nullptr);
  return {};
}

std::shared_ptr<IResult> AwsScanner::RetryDownload(const std::shared_ptr<IResult>& earlier) try {
  const auto result = AsAwsResult(earlier);
  LogPrintf(LogTrace, "[%s] RetryDownload Id=%s", Name(), result->GetId().c_str());
  const auto next = NextResult(result);
  const auto handle = transferManager->RetryDownload(result->GetHandle());
  return Started(next, handle);
} catch (const std::exception& reason) {
  Raised("RetryDownload", reason, nullptr);
  return {};
}

}  // namespace qvArchiving
