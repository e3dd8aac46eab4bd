#pragma once

#include <aws/transfer/TransferHandle.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace qvArchiving {

using Aws::Transfer::TransferStatus;

// The text of a status; "FAILED" for an unknown value.
[[nodiscard]] std::string TransferStatusName(TransferStatus status);

// One transfer, as its starter follows it. Any thread. Dropping the result doesn't stop the
// transfer.
class IResult {
 public:
  virtual ~IResult() = default;

  // Blocks until the transfer is over, then, for no more than a second, until a download is in its
  // place and everybody has been told.
  virtual void Wait() = 0;
  // Asks the transfer to stop; it ends as CANCELED, unless its end was near.
  virtual void Cancel() = 0;
  // True for the first caller of a transfer's run; false without a transfer.
  virtual bool LockForCompletion() = 0;
  // Forgets the transfer: from then on this is a result without one.
  virtual void ReleaseHandle() = 0;
  [[nodiscard]] virtual std::uint64_t GetBytesTransferred() const = 0;
  [[nodiscard]] virtual std::uint64_t GetBytesTotalSize() const = 0;
  // The last error's message; `text` stays as it is without a transfer.
  virtual void GetLastError(std::string& text) const = 0;
  [[nodiscard]] virtual std::string GetId() const = 0;
  [[nodiscard]] virtual std::string GetStatusName(TransferStatus status) const = 0;
  // FAILED without a transfer.
  [[nodiscard]] virtual TransferStatus GetStatus() const = 0;
  [[nodiscard]] virtual std::map<std::string, std::string> GetMetadata() const = 0;
  // From start to completion; meaningless for a transfer that didn't complete.
  [[nodiscard]] virtual std::int64_t GetElapsedMs() const = 0;
  // Waits no longer than that; whether the transfer is over and everybody has been told. To the end
  // where this isn't overridden.
  virtual bool WaitFor(std::chrono::milliseconds) {
    Wait();
    return true;
  }
  // The bytes of a range that has come, where they are in memory still; good until ReleaseHandle.
  [[nodiscard]] virtual std::span<const std::byte> Content() const { return {}; }
};

}  // namespace qvArchiving
