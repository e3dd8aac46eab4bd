#include "storage/Protection.h"

#include <algorithm>
#include <cstdlib>

#include "tree/CFileInfo.h"
#include "tree/RecordPath.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::uint64_t kDuplicate = std::uint64_t{1} << 32;
constexpr int kNumberShift = 33;
constexpr std::uint64_t kNoKey = 0;

// What tells the files of a directory apart; kNoKey for a name that isn't one of this system's own.
std::uint64_t NoteKey(std::string_view name) {
  const qv::kelvo::ParsedName parsed = qv::kelvo::ParseName(name);
  if (!parsed.valid || (!parsed.suffix.empty() && !parsed.isDuplicate)) return kNoKey;
  const std::uint64_t number = parsed.minute * 100u + parsed.second;
  return (number << kNumberShift) | (parsed.isDuplicate ? kDuplicate : 0) | parsed.id;
}

std::int64_t InSeconds(std::int32_t days) {
  return std::abs(std::int64_t{days}) * qv::kelvo::kSecondsPerDay;
}

}  // namespace

const HeadNotes::Note* HeadNotes::Find(std::uint64_t key) const {
  const auto found = std::ranges::lower_bound(notes, key, {}, &Note::key);
  return found != notes.end() && found->key == key ? &*found : nullptr;
}

void HeadNotes::Add(const Note& note) {
  notes.insert(std::ranges::lower_bound(notes, note.key, {}, &Note::key), note);
}

Protection::Protection(const RetentionRules& rules, const BookmarkTable& bookmarks,
                       qv::kelvo::Platform& platform)
    : retention(rules), bookmarkTable(bookmarks), system(platform), reader(platform.mediaFiles) {}

Removable Protection::CheckRemovable(const std::string& path, const std::string& root) {
  const std::size_t name = path.find_last_of(qv::kelvo::kPathSeparators) + 1;
  const std::string directory = path.substr(0, name);
  HeadNotes none;
  const std::string_view bareName = std::string_view(path).substr(name);
  return Check({directory, bareName, qv::kelvo::TimeOfPath(path, root)}, none).removable;
}

// Cheapest first: the name, the bookmarks, the global rule, and only then the head.
Verdict Protection::Check(const RecordingEntry& file, HeadNotes& notes) {
  qv::kelvo::PathFields fields;
  if (!qv::kelvo::ParsePath(file.name, fields)) return {};
  const qv::kelvo::StreamID id = fields.id;
  if (bookmarkTable.index.Covers(id, file.time)) return {Removable::Bookmarked};
  if (retention.expirationDays >= 1) {
    return RetainedUntil(
        qv::kelvo::AddSeconds(file.time.last, InSeconds(retention.expirationDays)));
  }
  // Only the files of channels have inputs of their own rules. Without a rule for the device the
  // head could only say that the file is free.
  if (qv::kelvo::IsWideInput(qv::kelvo::InputOf(id)) || !HasRule(id)) return {};

  const std::uint64_t key = NoteKey(file.name);
  const HeadNotes::Note* known = key == kNoKey ? nullptr : notes.Find(key);
  HeadNotes::Note head;
  if (known != nullptr) {
    head = *known;
  } else {
    const auto read = ReadHead(file);
    if (!read) return {.removable = Removable::Retained, .judged = false};
    head = *read;
    head.key = key;
    const bool final = qv::kelvo::AddSeconds(file.time.last, kFinalAge) < NowSeconds();
    if (key != kNoKey && final) notes.Add(head);
  }
  if (!head.ofChannels) return {};
  const auto rule = retention.cameraExpiration.find((id & ~0xFFu) | head.channel);
  if (rule == retention.cameraExpiration.end()) return {};
  return RetainedUntil(qv::kelvo::AddSeconds(head.lastTime, InSeconds(rule->second)));
}

Verdict Protection::RetainedUntil(std::int64_t until) const {
  return NowSeconds() < until ? Verdict{Removable::Retained, until} : Verdict{};
}

bool Protection::HasRule(qv::kelvo::StreamID id) const {
  const auto first = retention.cameraExpiration.lower_bound(id & ~0xFFu);
  return first != retention.cameraExpiration.end() && first->first <= (id | 0xFFu);
}

std::optional<HeadNotes::Note> Protection::ReadHead(const RecordingEntry& file) {
  ++headsRead;
  qv::kelvo::CFileInfo info;
  info.path = file.Path();
  const bool read = qv::kelvo::FillStreamRows(reader, info);
  reader.Close();
  if (reader.RefusedBySystem() != 0) return std::nullopt;
  const qv::kelvo::StreamRow& row = info.streamRows[0];
  HeadNotes::Note note;
  note.ofChannels = read && qv::kelvo::IsWideInput(info.fileInput) && row.frames != 0;
  note.channel = row.channel;
  note.lastTime = row.lastTime;
  return note;
}

std::uint64_t Protection::Revision() {
  if (basis.retentionRevision == retention.revision &&
      basis.bookmarkRevision == bookmarkTable.revision) {
    return revision;
  }
  // Devices are configured again and again with the same rules.
  if (basis.bookmarkRevision != bookmarkTable.revision ||
      basis.expirationDays != retention.expirationDays ||
      basis.cameraExpiration != retention.cameraExpiration) {
    ++revision;
    basis.expirationDays = retention.expirationDays;
    basis.cameraExpiration = retention.cameraExpiration;
  }
  basis.retentionRevision = retention.revision;
  basis.bookmarkRevision = bookmarkTable.revision;
  return revision;
}

}  // namespace qvsvr::kelvo
