#include "archiving/CLocalDiskScanner.h"

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdlib>

#include "platform/Files.h"

namespace qvArchiving {

namespace fs = boost::filesystem;

namespace {

constexpr unsigned long kFirstYear = 1970;
constexpr unsigned long kLastYear = 2100;
constexpr std::uint32_t kDirectoryMode = 0775;

}  // namespace

bool CLocalDiskScanner::GetYears(const fs::path& directory, std::set<int>& years,
                                 std::string& error) {
  if (!TestDirectory(directory)) {
    error = "missing base path or not directory (" + directory.string() + ")";
    return false;
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    errno = 0;
    const unsigned long year = std::strtoul(entry.path().filename().string().c_str(), nullptr, 10);
    if (errno == 0 && year >= kFirstYear && year <= kLastYear && TestDirectory(entry.path())) {
      years.insert(static_cast<int>(year));
    }
  }
  return true;
}

bool CLocalDiskScanner::QueryDirectory(const fs::path& directory, std::uint32_t& count,
                                       std::uint64_t& bytes, ScannedFileSet* files, bool wantTimes,
                                       std::string& error) {
  error.clear();
  count = kNoSuchDirectory;
  bytes = 0;
  if (!TestDirectory(directory)) return true;
  count = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    if (!TestFile(entry.path())) continue;
    boost::system::error_code status;
    const std::uint64_t size = fs::file_size(entry.path(), status);
    std::int64_t modified = 0;
    if (!status && wantTimes) modified = fs::last_write_time(entry.path(), status);
    // Others remove files meanwhile.
    if (status == boost::system::errc::no_such_file_or_directory) continue;
    if (status) throw fs::filesystem_error("QueryDirectory", entry.path(), status);
    if (files != nullptr) {
      files->insert({entry.path(), entry.path().filename().string(), size, true, modified});
    }
    ++count;
    bytes += size;
  }
  return true;
}

bool CLocalDiskScanner::DownloadDirectory(const fs::path&, const fs::path&, std::uint32_t&,
                                          std::uint64_t&, const std::map<std::string, std::string>&,
                                          std::string& error) {
  error = "NOT IMPLEMENTED";
  return false;
}

bool CLocalDiskScanner::TestDirectory(const fs::path& directory) {
  return fs::is_directory(directory);
}

bool CLocalDiskScanner::TestFile(const fs::path& file) {
  // Where the content is kept elsewhere, the library knows no regular file.
  qv::kelvo::FileKind kind{};
  const int error = qv::kelvo::FindKind(file.string(), kind);
  if (error != 0) {
    throw fs::filesystem_error("TestFile", file, {error, boost::system::system_category()});
  }
  return kind == qv::kelvo::FileKind::File;
}

bool CLocalDiskScanner::CreateDirectories(const fs::path& directory, std::string& error) {
  if (directory.empty()) return false;
  if (fs::exists(directory)) return true;
  if (!CreateDirectories(directory.parent_path(), error)) return false;
  boost::system::error_code status;
  if (fs::create_directory(directory, status)) {
    return SetPermissions(directory, kDirectoryMode, error);
  }
  error = "error creating " + directory.string() + " (" + status.message() + ")";
  return !status;
}

bool CLocalDiskScanner::SetPermissions(const fs::path&, std::uint32_t, std::string&) {
  return true;
}

bool CLocalDiskScanner::DeleteDirectory(const fs::path& directory, std::string&, bool recursive) {
  if (recursive) {
    fs::remove_all(directory);
  } else {
    fs::remove(directory);
  }
  return true;
}

bool CLocalDiskScanner::GetDiskSpace(const fs::path& directory, TargetSpace& space, std::string&) {
  const fs::space_info info = fs::space(directory);
  space = {info.capacity, info.free, info.available};
  return space.capacity != 0 || space.free != 0 || space.available != 0;
}

bool CLocalDiskScanner::RenameFile(const fs::path& from, const fs::path& to, std::string&) {
  fs::rename(from, to);
  return true;
}

bool CLocalDiskScanner::GetFileSize(const fs::path& file, std::uint64_t& size, std::string&) {
  size = fs::file_size(file);
  return true;
}

bool CLocalDiskScanner::RemoveFile(const fs::path& file, std::string&) {
  fs::remove(file);
  return true;
}

bool CLocalDiskScanner::GetMountPath(fs::path&) {
  return false;
}

bool CLocalDiskScanner::GetRemoteName(fs::path&) {
  return false;
}

std::shared_ptr<IResult> CLocalDiskScanner::Upload(const fs::path&, const fs::path&,
                                                   const std::map<std::string, std::string>&) {
  return {};
}

std::shared_ptr<IResult> CLocalDiskScanner::Download(const fs::path&, const fs::path&, std::int64_t,
                                                     std::int64_t) {
  return {};
}

std::shared_ptr<IResult> CLocalDiskScanner::RetryUpload(const std::shared_ptr<IResult>&) {
  return {};
}

std::shared_ptr<IResult> CLocalDiskScanner::RetryDownload(const std::shared_ptr<IResult>&) {
  return {};
}

bool CLocalDiskScanner::IsWithinMount(const fs::path&) {
  return false;
}

bool CLocalDiskScanner::IsSameTarget(const ScannerProperties&) {
  return true;
}

}  // namespace qvArchiving
