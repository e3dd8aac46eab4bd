#include "search/SearchTargetFileSystem.h"

#include <algorithm>

namespace qvsvr::kelvo {

void SearchTargetFileSystem::Restrict(const SearchRequest& request) {
  searchLocal = request.searchLocal;
  allArchives = request.allArchives;
  archives = request.archives;
  // Clocks may be set between the name and the frames.
  const std::int64_t slack = SlackSeconds() + qv::kelvo::kSecondsPerHour;
  held = inner.HoldRecordings(request.start - slack, qv::kelvo::AddSeconds(request.end, slack));
}

void SearchTargetFileSystem::GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                                        const qv::kelvo::ArchiveFilter*) {
  if (!searchLocal) flags &= ~qv::kelvo::kVolumesLocal;
  inner.GetVolumes(list, flags, allArchives ? nullptr : &archives);
}

void SearchTargetFileSystem::GetTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                                        const qv::kelvo::ArchiveFilter*) {
  if (!searchLocal) flags &= ~qv::kelvo::kVolumesLocal;
  inner.GetTargets(list, flags, allArchives ? nullptr : &archives);
}

std::shared_ptr<qvArchiving::IScanner> SearchTargetFileSystem::FindHolder(const std::string& path) {
  qv::kelvo::TargetList targets;
  GetTargets(targets, qv::kelvo::kVolumesLocal | qv::kelvo::kVolumesArchive, nullptr);
  const auto holder = std::ranges::find_if(
      targets, [&path](const auto& archive) { return archive->IsWithinMount(path); });
  return holder == targets.end() ? nullptr : *holder;
}

int SearchTargetFileSystem::Open(qv::kelvo::PSReader& reader, const std::string& path) {
  const int error = reader.Open(path);
  qv::kelvo::PsFileInfo info;
  if (error == qv::kelvo::kPsOk && reader.HasIndex() &&
      reader.GetFileInfo(info) == qv::kelvo::kPsOk) {
    return error;
  }
  const auto holder = FindHolder(path);
  if (holder == nullptr || !Buckets().Renew(holder, path)) return error;
  return reader.Open(path);
}

std::vector<qv::kelvo::RunTables::Table> SearchTargetFileSystem::FindTables(
    const std::string& directory, std::span<const std::string_view> names) {
  std::vector<qv::kelvo::RunTables::Table> tables(names.size());
  if (runTables == nullptr) return tables;
  const std::vector<qv::kelvo::RunTables::Known> found = runTables->Find(directory, names);
  std::vector<std::size_t> places;  // of those that are known, in `names`
  std::vector<std::string> indexNames;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (found[i].table == nullptr) continue;
    places.push_back(i);
    indexNames.push_back(qv::kelvo::IndexPath(std::string(names[i])));
  }
  if (places.empty()) return tables;
  std::vector<qv::kelvo::FileStamp> stamps(places.size());
  platform.mediaFiles.StampsOf(directory, indexNames, stamps);
  for (std::size_t i = 0; i < places.size(); ++i) {
    const auto& [stamp, table] = found[places[i]];
    if (stamps[i] == stamp) tables[places[i]] = table;
  }
  return tables;
}

void SearchTargetFileSystem::KeepTable(const std::string& path, qv::kelvo::PSReader& reader) {
  // A change right behind the last one might not show: clocks of file systems are as coarse as
  // that.
  constexpr std::int64_t kSettledMs = 3000;
  if (runTables == nullptr) return;
  qv::kelvo::FileStamp stamp = reader.IndexStamp();
  if (!stamp.IsKnown()) stamp = platform.mediaFiles.StampOf(qv::kelvo::IndexPath(path));
  if (platform.clock.NowMs() - stamp.changedNs / 1'000'000 < kSettledMs) return;
  if (auto table = reader.GetRunTable()) runTables->Put(path, stamp, std::move(table));
}

void SearchTargetFileSystem::NoteDamage(const qv::kelvo::PSReader& reader,
                                        const std::string& path) {
  if (reader.IsDamaged() && FindHolder(path) == nullptr) inner.NoteUnreadable(path);
}

void SearchTargetFileSystem::Mend(const std::string& path) {
  if (FindHolder(path) == nullptr) return;
  qv::kelvo::PSReader reader(MediaFiles());
  (void)Open(reader, path);
}

}  // namespace qvsvr::kelvo
