#include "tree/HourListing.h"

#include <algorithm>

#include "tree/RecordName.h"

namespace qv::kelvo {
namespace {

constexpr char kMediaPattern[] = "*.ps";

struct SortedName {
  explicit SortedName(std::string_view text) : name(text) {
    const ParsedName parsed = ParseName(text);
    rank = !parsed.valid ? 2 : parsed.isDuplicate ? 1 : 0;
    stem = parsed.valid ? text.substr(0, text.size() - parsed.extension.size()) : text;
  }
  bool operator<(const SortedName& other) const {
    if (rank != other.rank) return rank < other.rank;
    if (stem != other.stem) return stem < other.stem;
    return name < other.name;  // differs in the extension's letters only
  }

  std::string_view name;
  std::string_view stem;
  int rank = 0;
};

RunTables::Names ReadNames(Directories& directories, const std::string& directory) {
  auto names = std::make_shared<std::vector<std::string>>();
  (void)directories.List(directory, kMediaPattern, ListSizes::No, [&](const DirectoryEntry& entry) {
    if (!entry.isDirectory) names->emplace_back(entry.name);
    return true;
  });
  return names;
}

RunTables::Names NamesIn(Directories& directories, const std::string& directory, RunTables* known) {
  // Asked for before the names are read: what comes meanwhile changes it.
  const std::uint64_t stamp = known == nullptr ? 0 : directories.ChangeStamp(directory);
  if (stamp == 0) return ReadNames(directories, directory);
  RunTables::Listed listed = known->FindNames(directory);
  if (listed.names != nullptr && listed.stamp == stamp) return std::move(listed.names);
  RunTables::Names names = ReadNames(directories, directory);
  known->PutNames(directory, stamp, names);
  return names;
}

}  // namespace

bool ComesBefore(std::string_view a, std::string_view b) {
  return SortedName(a) < SortedName(b);
}

HourListing ListMediaFiles(Directories& directories,
                           const std::vector<std::string>& hourDirectories, RunTables* known) {
  struct Found {
    SortedName name;
    std::uint32_t volume;
  };
  std::vector<RunTables::Names> names;
  std::vector<Found> found;
  for (std::uint32_t volume = 0; volume < hourDirectories.size(); ++volume) {
    const std::string& directory = hourDirectories[volume];
    names.push_back(NamesIn(directories, directory, known));
    for (const std::string& name : *names.back()) found.push_back({SortedName(name), volume});
  }
  // Volumes of one name keep their order.
  std::stable_sort(found.begin(), found.end(),
                   [](const Found& a, const Found& b) { return a.name < b.name; });

  HourListing listing;
  listing.reserve(found.size());
  for (const Found& file : found) {
    if (listing.empty() || listing.back().name != file.name.name)
      listing.push_back({std::string(file.name.name), {}});
    listing.back().volumes.push_back(file.volume);
  }
  return listing;
}

void ListRecordings(Directories& directories, const std::string& directory, ListSizes sizes,
                    const std::function<bool(const NamedRecording&)>& visit) {
  (void)directories.List(directory, kMediaPattern, sizes, [&](const DirectoryEntry& entry) {
    NamedRecording recording{0, entry.name, entry.size};
    if (entry.isDirectory || !ReadNameNumber(entry.name, recording.number) ||
        recording.number >= kNameNumberLimit) {
      return true;
    }
    return visit(recording);
  });
}

bool IsOutsideRange(std::int64_t fileStart, std::int64_t start, std::int64_t end,
                    std::int64_t slack) {
  return fileStart + slack < start || fileStart >= end;
}

bool IsBucketSkipped(std::int64_t fileStart, std::int64_t bucket, std::int64_t resolution,
                     std::int64_t start, std::int64_t end, std::int64_t slack) {
  if (resolution == 0 || resolution >= end - start) return false;
  return IsOutsideRange(fileStart, start + (bucket + 1) * resolution, end, slack);
}

}  // namespace qv::kelvo
