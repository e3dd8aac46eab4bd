#pragma once

#include "archiving/IScanner.h"

namespace qvArchiving {

// A directory tree of the local file system. Where `error` isn't named below, a failure leaves as
// the file system library's exception.
class CLocalDiskScanner : public IScanner {
 public:
  explicit CLocalDiskScanner(ScannerProperties values = {}, ScannerCallback sink = {})
      : IScanner(std::move(values), std::move(sink)) {}

  // A missing directory is told by `error`.
  bool GetYears(const boost::filesystem::path& directory, std::set<int>& years,
                std::string& error) override;
  bool QueryDirectory(const boost::filesystem::path& directory, std::uint32_t& count,
                      std::uint64_t& bytes, ScannedFileSet* files, bool wantTimes,
                      std::string& error) override;
  bool DownloadDirectory(const boost::filesystem::path& remote,
                         const boost::filesystem::path& local, std::uint32_t& count,
                         std::uint64_t& bytes, const std::map<std::string, std::string>& names,
                         std::string& error) override;
  bool TestDirectory(const boost::filesystem::path& directory) override;
  bool TestFile(const boost::filesystem::path& file) override;
  // Makes parents first. A failure is told by `error`.
  bool CreateDirectories(const boost::filesystem::path& directory, std::string& error) override;
  bool SetPermissions(const boost::filesystem::path& path, std::uint32_t mode,
                      std::string& error) override;
  bool DeleteDirectory(const boost::filesystem::path& directory, std::string& error,
                       bool recursive) override;
  bool GetDiskSpace(const boost::filesystem::path& directory, TargetSpace& space,
                    std::string& error) override;
  bool RenameFile(const boost::filesystem::path& from, const boost::filesystem::path& to,
                  std::string& error) override;
  bool GetFileSize(const boost::filesystem::path& file, std::uint64_t& size,
                   std::string& error) override;
  bool RemoveFile(const boost::filesystem::path& file, std::string& error) override;
  bool GetMountPath(boost::filesystem::path& path) override;
  bool GetRemoteName(boost::filesystem::path& name) override;
  std::shared_ptr<IResult> Upload(const boost::filesystem::path& local,
                                  const boost::filesystem::path& remote,
                                  const std::map<std::string, std::string>& metadata) override;
  std::shared_ptr<IResult> Download(const boost::filesystem::path& remote,
                                    const boost::filesystem::path& local, std::int64_t offset,
                                    std::int64_t size) override;
  std::shared_ptr<IResult> RetryUpload(const std::shared_ptr<IResult>& earlier) override;
  std::shared_ptr<IResult> RetryDownload(const std::shared_ptr<IResult>& earlier) override;
  bool IsWithinMount(const boost::filesystem::path& path) override;
  bool IsSameTarget(const ScannerProperties& other) override;
};

}  // namespace qvArchiving
