#include "media/RunTables.h"

namespace qv::kelvo {
namespace {

// What an entry takes besides its variable parts: nodes of the list and the map, control block.
constexpr std::size_t kOverhead = 160;

std::size_t BytesOf(const std::string& path, const RunTable& table) {
  return kOverhead + path.size() + sizeof table +
         table.streams.capacity() * sizeof(RunTable::Stream) +
         table.runs.capacity() * sizeof(PsiRunRecord);
}

}  // namespace

RunTables::Known RunTables::Find(const std::string& path) {
  const std::lock_guard guard(lock);
  const auto found = byPath.find(path);
  if (found == byPath.end()) return {};
  entries.splice(entries.begin(), entries, found->second);
  return {found->second->stamp, found->second->table};
}

void RunTables::Put(const std::string& path, const FileStamp& stamp, Table table) {
  if (!stamp.IsKnown()) return;
  const std::size_t bytes = BytesOf(path, *table);
  if (bytes > limit) return;
  const std::lock_guard guard(lock);
  if (const auto found = byPath.find(path); found != byPath.end()) Forget(found->second);
  entries.push_front({path, stamp, std::move(table), bytes});
  byPath.emplace(entries.front().path, entries.begin());
  used += bytes;
  while (used > limit) Forget(std::prev(entries.end()));
}

void RunTables::Forget(std::list<Entry>::iterator entry) {
  used -= entry->bytes;
  byPath.erase(entry->path);
  entries.erase(entry);
}

}  // namespace qv::kelvo
