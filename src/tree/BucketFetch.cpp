#include "tree/BucketFetch.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <stdexcept>

#include "archiving/IResult.h"
#include "host/Log.h"
#include "media/PsFormat.h"

namespace qv::kelvo {
namespace {

using qvArchiving::IResult;
using qvArchiving::IScanner;

constexpr int kBucketType = 5;
constexpr char kRecordingPattern[] = "*.ps*";
constexpr std::int64_t kMediaHead = kPackHeaderSize + kProgramMapSize;

void LogHints(std::span<const RequestKey> requested) {
  using namespace qvsvr::kelvo;
  if (!LogLevelEnabled(LogTrace)) return;
  std::string text;
  for (const RequestKey key : requested) {
    char number[16];
    std::snprintf(number, sizeof number, "%s0x%x", text.empty() ? "" : ",", key);
    text += number;
  }
  LogPrintf(LogTrace, "hints[]=%s", text.c_str());
}

// Whether the stream id in a recording's name belongs to one of the devices asked for.
bool IsRequested(const std::string& name, std::span<const RequestKey> requested) {
  StreamID id = 0;
  if (!ReadNameId(name, id)) return false;
  return std::ranges::any_of(requested, [id](RequestKey key) { return IsSameDevice(key, id); });
}

std::set<std::string> LocalNames(Directories& directories, const std::string& directory) {
  std::set<std::string> names;
  (void)directories.List(directory, kRecordingPattern, ListSizes::No,
                         [&](const DirectoryEntry& entry) {
                           if (!entry.isDirectory) names.emplace(entry.name);
                           return true;
                         });
  return names;
}

std::set<std::string> RemoteNames(IScanner& target, const std::string& directory,
                                  std::span<const RequestKey> requested) {
  std::uint32_t count = 0;
  std::uint64_t bytes = 0;
  qvArchiving::ScannedFileSet files;
  std::string error;
  std::set<std::string> names;
  if (!target.QueryDirectory(directory, count, bytes, &files, false, error)) return names;
  if (!requested.empty()) LogHints(requested);
  for (const auto& file : files) {
    if (requested.empty() || IsRequested(file.name, requested)) names.insert(file.name);
  }
  return names;
}

void FetchFrom(Directories& directories, IScanner& target, const std::string& directory,
               std::span<const RequestKey> requested) {
  const std::set<std::string> remote = RemoteNames(target, directory, requested);
  if (remote.empty()) return;
  const std::set<std::string> local = LocalNames(directories, directory);
  std::vector<std::shared_ptr<IResult>> transfers;
  for (const std::string& name : remote) {
    const bool index = name.ends_with(".psi");
    if (local.contains(name) || (!index && !name.ends_with(".ps"))) continue;
    const std::string path = directory + name;
    auto transfer = target.Download(path, path, 0, index ? 0 : kMediaHead);
    if (transfer != nullptr) transfers.push_back(std::move(transfer));
  }
  for (const auto& transfer : transfers) transfer->Wait();
  for (const auto& transfer : transfers) transfer->ReleaseHandle();
}

}  // namespace

bool IsBucket(const IScanner& target, std::string& root) {
  const qvArchiving::ScannerProperties properties = target.Properties();
  namespace key = qvArchiving::property;
  try {
    const std::string type = qvArchiving::PropertyOr(properties, key::kType);
    if (qvArchiving::ParseDecimal(type) != kBucketType) return false;
  } catch (const std::logic_error&) {
    return false;  // a target of no type must not keep a search from the others
  }
  root = qvArchiving::PropertyOr(properties, key::kFullyMountedPath);
  root = root.empty() ? std::string(1, kPathSeparator) : WithSeparator(std::move(root));
  return true;
}

void FetchBucketHour(Directories& directories, const TargetList& targets, UtcMs time,
                     std::span<const RequestKey> requested) {
  for (const auto& target : targets) {
    std::string root;
    if (!IsBucket(*target, root)) continue;
    FetchFrom(directories, *target, HourDirectory(root, time), requested);
  }
}

}  // namespace qv::kelvo
