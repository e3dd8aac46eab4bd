#include "media/RunTables.h"

#include <algorithm>
#include <utility>

#include "platform/Platform.h"

namespace qv::kelvo {
namespace {

// What a table takes besides its variable parts, and an hour: nodes, control blocks, names.
constexpr std::size_t kOverhead = 160;

std::size_t BytesOf(const RunTable& table) {
  return kOverhead + sizeof table + table.streams.capacity() * sizeof(RunTable::Stream) +
         table.runs.capacity() * sizeof(PsiRunRecord);
}

std::size_t BytesOf(const RunTables::Names& names) {
  if (names == nullptr) return 0;
  std::size_t bytes = names->capacity() * sizeof(std::string);
  for (const std::string& name : *names) bytes += name.capacity();
  return bytes;
}

}  // namespace

std::vector<RunTables::Known> RunTables::Find(const std::string& directory,
                                              std::span<const std::string_view> names) {
  std::vector<Known> found(names.size());
  const std::lock_guard guard(lock);
  const Hour* hour = FindHour(directory);
  if (hour == nullptr) return found;
  auto next = hour->entries.begin();  // mostly the names come in order
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (next == hour->entries.end() || next->name != names[i]) {
      next = std::ranges::lower_bound(hour->entries, names[i], {}, &Entry::name);
    }
    if (next != hour->entries.end() && next->name == names[i]) found[i] = next++->known;
  }
  return found;
}

void RunTables::Put(const std::string& path, const FileStamp& stamp, Table table) {
  if (!stamp.IsKnown()) return;
  const auto nameAt = static_cast<std::size_t>(
      std::find_if(path.rbegin(), path.rend(), IsPathSeparator).base() - path.begin());
  const std::string_view name = std::string_view(path).substr(nameAt);
  const std::lock_guard guard(lock);
  Hour& hour = TakeHour(std::string_view(path).substr(0, nameAt));
  auto place = std::ranges::lower_bound(hour.entries, name, {}, &Entry::name);
  if (place == hour.entries.end() || place->name != name) {
    place = hour.entries.insert(place, {std::string(name), {}});
  } else {
    const std::size_t old = BytesOf(*place->known.table);
    hour.bytes -= old;
    used -= old;
  }
  const std::size_t bytes = BytesOf(*table);
  place->known = {stamp, std::move(table)};
  Add(hour, bytes);
}

RunTables::Listed RunTables::FindNames(const std::string& directory) {
  const std::lock_guard guard(lock);
  const Hour* hour = FindHour(directory);
  return hour == nullptr ? Listed{} : hour->listed;
}

void RunTables::PutNames(const std::string& directory, std::uint64_t stamp, Names names) {
  const std::size_t bytes = BytesOf(names);
  const std::lock_guard guard(lock);
  Hour& hour = TakeHour(directory);
  const std::size_t old = BytesOf(hour.listed.names);
  hour.bytes -= old;
  used -= old;
  hour.listed = {stamp, std::move(names)};
  Add(hour, bytes);
}

RunTables::Hour* RunTables::FindHour(std::string_view directory) {
  if (!hours.empty() && hours.front().directory == directory) return &hours.front();
  const auto found = byDirectory.find(directory);
  if (found == byDirectory.end()) return nullptr;
  hours.splice(hours.begin(), hours, found->second);
  return &*found->second;
}

RunTables::Hour& RunTables::TakeHour(std::string_view directory) {
  if (Hour* hour = FindHour(directory)) return *hour;
  Hour& hour = hours.emplace_front();
  hour.directory = directory;
  byDirectory.emplace(hour.directory, hours.begin());
  hour.bytes = sizeof hour + kOverhead + directory.size();
  used += hour.bytes;
  return hour;
}

// The hour itself may go by it.
void RunTables::Add(Hour& hour, std::size_t bytes) {
  hour.bytes += bytes;
  used += bytes;
  while (used > limit) Forget(std::prev(hours.end()));
}

void RunTables::Forget(std::list<Hour>::iterator hour) {
  used -= hour->bytes;
  byDirectory.erase(hour->directory);
  hours.erase(hour);
}

}  // namespace qv::kelvo
