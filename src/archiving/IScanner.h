#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/Platform.h"

namespace qvArchiving {

class IResult;
class IScanner;

// The configuration of one archive target, all values as text.
using ScannerProperties = std::map<std::string, std::string>;

namespace property {
inline constexpr char kType[] = "Type";
inline constexpr char kFullName[] = "FullName";                  // the target's address
inline constexpr char kFullyMountedPath[] = "FullyMountedPath";  // prefix of its local copies
inline constexpr char kUserName[] = "UserName";
inline constexpr char kPassword[] = "Password";
inline constexpr char kVerifySSL[] = "VerifySSL";  // "true" turns certificate checks on
inline constexpr char kSuppressWorkingFiles[] = "SuppressWorkingFiles";  // presence counts
inline constexpr char kCacheEnable[] = "CacheEnable";                    // presence counts
inline constexpr char kCacheSizeGigabytes[] = "CacheSizeGigabytes";
inline constexpr char kCacheRetentionSeconds[] = "CacheRetentionSeconds";
// Known to configurations, without effect.
inline constexpr char kMultipart[] = "Multipart";
inline constexpr char kDirection[] = "Direction";
inline constexpr char kRegion[] = "Region";
}  // namespace property

// The number that the text begins with. Throws std::invalid_argument if there is none and
// std::out_of_range if it doesn't fit.
[[nodiscard]] int ParseDecimal(const std::string& text);

// The property's value, "" if it is absent.
[[nodiscard]] std::string PropertyOr(const ScannerProperties& properties, const char* key);

// One file of a listing or of the cache.
struct ScannedFile {
  boost::filesystem::path path;
  std::string name;  // last component of the path
  std::uint64_t size = 0;
  bool byName = false;        // how this record is sorted: by name, else by `modified`
  std::int64_t modified = 0;  // seconds since 1970; 0: not asked for
};

// The record that goes in decides the order; records of one set agree on it.
struct ScannedFileOrder {
  bool operator()(const ScannedFile& a, const ScannedFile& b) const {
    return a.byName ? a.name < b.name : a.modified < b.modified;
  }
};

// Equal keys stay beside one another.
using ScannedFileSet = std::multiset<ScannedFile, ScannedFileOrder>;

// Told of transfers: "Result" is "Status", "Progress" or "Error". Called on a thread of the
// transfer library, which it must not hold up, or of whoever starts a transfer. It may start
// transfers, but must not drop the last reference to the scanner.
using ScannerCallback = std::function<void(IScanner&, const std::shared_ptr<IResult>&,
                                           const std::map<std::string, std::string>&)>;

// Bytes.
struct TargetSpace {
  std::uint64_t capacity = 0;
  std::uint64_t free = 0;
  std::uint64_t available = 0;
};

inline constexpr std::uint32_t kNoSuchDirectory = 0xFFFFFFFF;

// One archive target: a place outside the record volumes that holds the same dated tree. Paths are
// those of local copies, below the target's mounted path. True is success; `error` takes the text
// of a failure. Any thread.
class IScanner : public std::enable_shared_from_this<IScanner> {
 public:
  explicit IScanner(ScannerProperties values, ScannerCallback sink = {})
      : properties(std::move(values)), callback(std::move(sink)) {}

  // The directories below `directory` that are years of 1970 to 2100.
  virtual bool GetYears(const boost::filesystem::path& directory, std::set<int>& years,
                        std::string& error) = 0;
  // The files of one directory. `files` may be null. A local directory that isn't there is a
  // success with `count` kNoSuchDirectory; a bucket gives one less than there are files.
  virtual bool QueryDirectory(const boost::filesystem::path& directory, std::uint32_t& count,
                              std::uint64_t& bytes, ScannedFileSet* files, bool wantTimes,
                              std::string& error) = 0;
  // Fetches the files named by the map's values, one after the other; stops at the first failure.
  virtual bool DownloadDirectory(const boost::filesystem::path& remote,
                                 const boost::filesystem::path& local, std::uint32_t& count,
                                 std::uint64_t& bytes,
                                 const std::map<std::string, std::string>& names,
                                 std::string& error) = 0;
  virtual bool TestDirectory(const boost::filesystem::path& directory) = 0;
  virtual bool TestFile(const boost::filesystem::path& file) = 0;
  virtual bool CreateDirectories(const boost::filesystem::path& directory, std::string& error) = 0;
  virtual bool SetPermissions(const boost::filesystem::path& path, std::uint32_t mode,
                              std::string& error) = 0;
  virtual bool DeleteDirectory(const boost::filesystem::path& directory, std::string& error,
                               bool recursive) = 0;
  virtual bool GetDiskSpace(const boost::filesystem::path& directory, TargetSpace& space,
                            std::string& error) = 0;
  virtual bool RenameFile(const boost::filesystem::path& from, const boost::filesystem::path& to,
                          std::string& error) = 0;
  virtual bool GetFileSize(const boost::filesystem::path& file, std::uint64_t& size,
                           std::string& error) = 0;
  // A file that is already gone is a success.
  virtual bool RemoveFile(const boost::filesystem::path& file, std::string& error) = 0;
  // Where local copies lie; false if the target has no such place.
  virtual bool GetMountPath(boost::filesystem::path& path) = 0;
  virtual bool GetRemoteName(boost::filesystem::path& name) = 0;

  // Transfers run in the background. Empty if the target has none or the start failed.
  virtual std::shared_ptr<IResult> Upload(const boost::filesystem::path& local,
                                          const boost::filesystem::path& remote,
                                          const std::map<std::string, std::string>& metadata) = 0;
  // The whole file when offset and size are 0, replacing the local one; else that range, at its
  // place in the local file. Unless the transfer completes, the local file stays as good as it was.
  virtual std::shared_ptr<IResult> Download(const boost::filesystem::path& remote,
                                            const boost::filesystem::path& local,
                                            std::int64_t offset, std::int64_t size) = 0;
  // Resume a transfer that failed or was cancelled.
  virtual std::shared_ptr<IResult> RetryUpload(const std::shared_ptr<IResult>& earlier) = 0;
  virtual std::shared_ptr<IResult> RetryDownload(const std::shared_ptr<IResult>& earlier) = 0;

  virtual bool IsWithinMount(const boost::filesystem::path& path) = 0;
  virtual bool IsSameTarget(const ScannerProperties& other) = 0;

  virtual ~IScanner() = default;

  // Runs a question to this target where it holds nobody up, which may be right here. It must not
  // keep the target, whose end waits for it, and must not throw.
  virtual void InBackground(const std::function<void()>& question) { question(); }
  // How many questions, transfers not among them, the store has refused or left unanswered so far.
  [[nodiscard]] virtual std::uint64_t StoreErrors() const { return 0; }
  // Local copies that somebody is about to read: they stay longer than others.
  virtual void NoteUse(const std::vector<std::string>& /*paths*/) {}

  // A copy of the target's configuration.
  [[nodiscard]] ScannerProperties Properties() const { return properties; }

 protected:
  // Logs the first key that is missing.
  [[nodiscard]] bool CheckRequiredProperties(const std::vector<std::string>& keys) const;

  const ScannerProperties properties;
  const ScannerCallback callback;
};

// The target that the properties tell of. Throws std::invalid_argument or std::out_of_range for
// properties that make no target, and a bare string for a type that isn't known. The platform
// must outlive the scanner and its transfers.
[[nodiscard]] std::shared_ptr<IScanner> CreateScanner(const ScannerProperties& properties,
                                                      const ScannerCallback& callback,
                                                      qv::kelvo::Platform& platform);

}  // namespace qvArchiving
