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

struct Found {
  std::string name;
  std::uint32_t volume;
};

}  // namespace

bool ComesBefore(std::string_view a, std::string_view b) {
  return SortedName(a) < SortedName(b);
}

HourListing ListMediaFiles(Directories& directories,
                           const std::vector<std::string>& hourDirectories) {
  std::vector<Found> found;
  for (std::uint32_t volume = 0; volume < hourDirectories.size(); ++volume) {
    (void)directories.List(hourDirectories[volume], kMediaPattern, ListSizes::No,
                           [&](const DirectoryEntry& entry) {
                             if (!entry.isDirectory)
                               found.push_back({std::string(entry.name), volume});
                             return true;
                           });
  }
  std::vector<std::pair<SortedName, Found*>> order;
  order.reserve(found.size());
  for (Found& file : found) order.emplace_back(file.name, &file);
  // Volumes of one name keep their order.
  std::stable_sort(order.begin(), order.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });

  HourListing listing;
  listing.reserve(order.size());
  for (const auto& [name, file] : order) {
    if (listing.empty() || listing.back().name != name.name)
      listing.push_back({std::move(file->name), {}});
    listing.back().volumes.push_back(file->volume);
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
