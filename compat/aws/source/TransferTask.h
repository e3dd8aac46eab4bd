#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

#include "Channel.h"
#include "aws/transfer/TransferManager.h"

namespace Aws::Transfer {

// The file of that name, which is UTF-8, for reading.
[[nodiscard]] inline std::ifstream OpenFile(const String& name, std::ios::openmode mode = {}) {
  const std::u8string text(name.begin(), name.end());
  return std::ifstream(std::filesystem::path(text), std::ios::binary | mode);
}

// One run of one transfer, on a thread of the executor. A task that is dropped unrun ends its
// transfer as cancelled. Steps are false once they failed and have told why.
class TransferTask {
 public:
  TransferTask(std::shared_ptr<const TransferManager> owner,
               std::shared_ptr<TransferHandle> subject);
  ~TransferTask();
  TransferTask(const TransferTask&) = delete;
  TransferTask& operator=(const TransferTask&) = delete;

  void Run();

  // Sets the status, then tells of it.
  static void Report(const TransferManager& manager, const std::shared_ptr<TransferHandle>& handle,
                     TransferStatus status);

 private:
  [[nodiscard]] bool Download();
  [[nodiscard]] bool DownloadFirstPart();
  [[nodiscard]] bool DownloadPart(std::size_t part);
  [[nodiscard]] Compat::S3Result<Compat::Response> Fetch(std::size_t part, std::uint64_t bytes);
  // The stream, which is made anew until the object's size is known, at that place.
  IOStream* OpenStream(std::uint64_t at);

  [[nodiscard]] bool Upload();
  [[nodiscard]] bool UploadWhole(std::ifstream& file);
  [[nodiscard]] bool BeginParts();
  [[nodiscard]] bool UploadPart(std::ifstream& file, std::size_t part);
  [[nodiscard]] bool CompleteParts();

  // Runs `work` for each part that isn't done, until one fails.
  [[nodiscard]] bool RunParts(const std::function<bool(std::size_t)>& work);

  [[nodiscard]] Compat::Request NewRequest(const char* method) const;
  // Sends with the bytes counted; those of a failed attempt don't stay.
  [[nodiscard]] Compat::S3Result<Compat::Response> SendCounted(Compat::Request& request);
  // Adds headers for the content type and the metadata.
  [[nodiscard]] bool AddMetadata(Compat::Request& request);
  void KeepMetadata(const Compat::Response& response);
  [[nodiscard]] std::uint64_t PartBytes(std::size_t part) const;
  [[nodiscard]] std::size_t PartCount() const;
  void Report(TransferStatus status) { Report(*manager, handle, status); }
  // Tells why the transfer fails; always false.
  bool Refuse(const S3::S3Error& error);
  bool Refuse(const std::string& reason) {
    return Refuse(S3::S3Error(S3::S3Errors::INTERNAL_FAILURE, "", reason, false));
  }

  const std::shared_ptr<const TransferManager> manager;
  const std::shared_ptr<TransferHandle> handle;
  Compat::Channel& channel;
  bool ran = false;
};

}  // namespace Aws::Transfer
