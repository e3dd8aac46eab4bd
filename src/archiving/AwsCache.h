#pragma once

#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "archiving/IScanner.h"

namespace qvArchiving {

// Keeps downloaded files within limits.
class ICache {
 public:
  virtual ~ICache() = default;

  // Takes note of a file that was downloaded; may remove others. Throws what the file system
  // throws. Any thread. The second argument may be ignored.
  virtual void Add(const ScannedFile& file, std::uint64_t hint) = 0;
};

// The downloaded files below a target's mounted path, within limits: the oldest go when they are
// too old, or when all together are too large for the limit or for their disk less a tenth; then
// down to nine tenths, so that not every file that comes makes one go. It keeps the sum of their
// sizes and looks at limits when a file is added or about to be fetched and when the disk is full;
// it has no thread. Files that others remove drop out when their turn comes. One for each mounted
// path, whatever number of scanners it has: they own it together, and a scanner that is made while
// the earlier one still ends goes on with it. What a search lists counts as used
// and goes last. Any thread; one lock, held across removals.
class AwsCache : public ICache {
 public:
  // Takes in what lies there; borrows `system` for its life. Throws std::out_of_range without a
  // mounted path, and what a number that is none and the file system throw.
  AwsCache(const ScannerProperties& values, qv::kelvo::Platform& system);
  // The one that looks after the mounted path, which is made if there is none; throws likewise.
  [[nodiscard]] static std::shared_ptr<AwsCache> Of(const ScannerProperties& values,
                                                    qv::kelvo::Platform& system);

  // The file itself is never removed. A failure to remove another one leaves as an exception, and
  // that one is tried again next time.
  void Add(const ScannedFile& file, std::uint64_t hint) override;

  // The files are as good as new: somebody is about to read them.
  void Use(const std::vector<std::string>& paths);
  // Ahead of a fetch of so many bytes. What can't be removed stays.
  void MakeRoom(std::uint64_t bytes);
  // The disk is full, whoever filled it: a tenth goes.
  void GiveUpTenth();

 private:
  using Entry = ScannedFileSet::iterator;

  void ReadLimits();
  void Load();
  void LoadDirectory(const boost::filesystem::path& directory);
  void Insert(const ScannedFile& file);

  // Whether the file then fits.
  bool Trim(const ScannedFile& file, std::int64_t retention);
  void TrimByAge(const ScannedFile& file, std::int64_t retention);
  void TrimBySize(const ScannedFile& file, std::uint64_t limit);
  [[nodiscard]] std::uint64_t Limit();
  // Removes an entry's file, then the entry. `entry` moves on to the next one in any case.
  void Remove(Entry& entry, const char* mark);
  [[nodiscard]] std::int64_t NowSeconds() const;

  ScannedFileSet files;
  std::uint64_t totalBytes = 0;
  std::uint64_t maxBytes = std::uint64_t{50} << 30;
  std::int64_t retentionSeconds = 86400;
  const ScannerProperties properties;
  boost::mutex lock;

  const std::string fullName;
  qv::kelvo::Platform& platform;
  std::unordered_map<std::string, Entry> byPath;
};

}  // namespace qvArchiving
