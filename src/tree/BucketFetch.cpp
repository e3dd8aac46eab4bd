#include "tree/BucketFetch.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <future>
#include <stdexcept>
#include <utility>

#include "host/Log.h"
#include "media/PsFormat.h"
#include "tree/RecordPath.h"

namespace qv::kelvo {

// What a store says to a question, and whether it failed to answer.
struct BucketAccess::Answer {
  bool yes = false;
  bool failed = false;
  qvArchiving::ScannedFileSet files;
  std::promise<void> given;
};

namespace {

using qvArchiving::IScanner;
using qvArchiving::TransferDesk;

constexpr int kBucketType = 5;
constexpr char kRecordingPattern[] = "*.ps*";
constexpr std::uint64_t kMediaHead = kPackHeaderSize + kProgramMapSize;
// More than the frames of all streams of a file come to, at any rate they can have.
constexpr std::uint64_t kMaxIndex = std::uint64_t{256} << 20;
constexpr std::chrono::milliseconds kPatience(1000);

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

bool IsIndex(const std::string& name) {
  return name.ends_with(".psi");
}

// Whether the name, with the extension of a recording or its index, is one; and, if devices were
// asked for, of one of them.
bool IsWanted(const std::string& name, std::span<const RequestKey> requested) {
  const std::string media = IsIndex(name) ? name.substr(0, name.size() - 1) : name;
  const ParsedName parsed = ParseName(media);
  const auto isControl = [](char letter) { return static_cast<unsigned char>(letter) < ' '; };
  if (!media.ends_with(".ps") || !parsed.valid || std::ranges::any_of(media, isControl))
    return false;
  return requested.empty() || std::ranges::any_of(requested, [&](RequestKey key) {
           return IsSameDevice(key, parsed.id);
         });
}

// A copy that was cut, or whose object has changed, doesn't count.
bool IsGood(const std::string& name, std::uint64_t local, std::uint64_t remote) {
  return IsIndex(name) ? local == remote : local >= std::min(remote, kMediaHead);
}

bool HasGoodCopy(Platform& platform, const std::string& path, std::uint64_t remote) {
  std::unique_ptr<MediaFile> file;
  std::uint64_t local = 0;
  return platform.mediaFiles.Open(path, OpenMode::Read, file) == 0 && file->Size(local) == 0 &&
         IsGood(path, local, remote);
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

void BucketAccess::Wait() {
  lastWait = platform.clock.SteadyNs();
  if (!gaveUp && onWaiting) gaveUp = !onWaiting();
}

std::shared_ptr<BucketAccess::Answer> BucketAccess::Ask(const Scanner& target, Question question) {
  if (IsLeftAlone(target)) return nullptr;
  auto answer = std::make_shared<Answer>();
  auto given = answer->given.get_future();
  target->InBackground([asked = target.get(), answer, question = std::move(question)] {
    const std::uint64_t errors = asked->StoreErrors();
    try {
      question(*asked, *answer);
      answer->failed = asked->StoreErrors() != errors;
      answer->given.set_value();
    } catch (...) {
      answer->given.set_exception(std::current_exception());
    }
  });
  while (given.wait_for(kPatience) != std::future_status::ready) {
    Wait();
    if (gaveUp) return nullptr;
  }
  given.get();  // throws what the question threw
  if (answer->failed) silent.insert(target.get());
  return answer;
}

bool BucketAccess::TestLevel(const Scanner& target, const std::string& root, UtcMs time,
                             TreeLevel level) {
  const std::string hour = HourDirectory(root, time);
  const auto known = listed.find(target.get());
  const bool expects =
      known == listed.end() || (known->second.directory == known->second.lastWithFiles);
  if (expects && (known == listed.end() || known->second.directory != hour)) List(target, hour);
  const std::string directory = TreeDirectory(root, time, level);
  const Listed& last = listed[target.get()];
  if (last.lastWithFiles.starts_with(directory)) return true;
  if (level == TreeLevel::Hour && last.directory == hour) return false;
  const auto answer = Ask(target, [directory](IScanner& asked, Answer& told) {
    told.yes = asked.TestDirectory(directory);
  });
  return answer != nullptr && answer->yes;
}

void BucketAccess::List(const Scanner& target, const std::string& directory) {
  auto answer = Ask(target, [directory](IScanner& asked, Answer& told) {
    std::uint32_t count = 0;
    std::uint64_t bytes = 0;
    std::string error;
    told.yes = asked.QueryDirectory(directory, count, bytes, &told.files, false, error);
  });
  Listed& last = listed[target.get()];
  last.directory = directory;
  if (answer != nullptr && answer->yes && !answer->files.empty()) last.lastWithFiles = directory;
  last.answer = std::move(answer);
}

void BucketAccess::FetchHour(const TargetList& targets, UtcMs time,
                             std::span<const RequestKey> requested) {
  for (const auto& target : targets) {
    std::string root;
    if (!IsBucket(*target, root)) continue;
    FetchFrom(target, HourDirectory(root, time), requested);
  }
}

void BucketAccess::FetchFrom(const Scanner& target, const std::string& directory,
                             std::span<const RequestKey> requested) {
  Listed& last = listed[target.get()];
  if (last.directory != directory || last.answer == nullptr) List(target, directory);
  const auto answer = std::exchange(last.answer, nullptr);
  if (answer == nullptr || !answer->yes) return;
  if (!requested.empty()) LogHints(requested);
  std::map<std::string, std::uint64_t> remote;
  std::vector<std::string> paths;
  for (const auto& file : answer->files) {
    if (!IsWanted(file.name, requested) || (IsIndex(file.name) && file.size > kMaxIndex)) continue;
    remote[file.name] = file.size;
    paths.push_back(directory + file.name);
  }
  if (remote.empty()) return;
  target->NoteUse(paths);
  const Fetch missing = BeginMissing(target, directory, remote);
  (void)Await(target, missing);
}

BucketAccess::Fetch BucketAccess::BeginMissing(const Scanner& target, const std::string& directory,
                                               const std::map<std::string, std::uint64_t>& remote) {
  std::map<std::string, std::uint64_t> local;
  (void)platform.directories.List(directory, kRecordingPattern, ListSizes::Yes,
                                  [&](const DirectoryEntry& entry) {
                                    if (!entry.isDirectory)
                                      local[std::string(entry.name)] = entry.size;
                                    return true;
                                  });
  const auto desk = TransferDesk::Of(*target);
  Fetch fetch;
  for (const auto& [name, size] : remote) {
    const auto copy = local.find(name);
    if (copy != local.end() && IsGood(name, copy->second, size)) continue;
    TransferDesk::Wish wish;
    wish.path = directory + name;
    wish.bytes = IsIndex(name) ? 0 : kMediaHead;
    wish.limit = kMaxIndex;
    wish.isHere = [&, remoteSize = size] { return HasGoodCopy(platform, wish.path, remoteSize); };
    fetch.push_back(desk->Fetch(target, wish));
  }
  return fetch;
}

bool BucketAccess::Renew(const Scanner& target, const std::string& path) {
  if (IsLeftAlone(target) || !renewed.insert(path).second) return false;
  const auto desk = TransferDesk::Of(*target);
  Fetch fetch;
  fetch.push_back(desk->Fetch(target, {path + 'i', 0, 0, kMaxIndex, {}}));
  fetch.push_back(desk->Fetch(target, {path, 0, kMediaHead, kMaxIndex, {}}));
  (void)Await(target, fetch);
  return std::ranges::any_of(fetch, [](const auto& ticket) { return ticket.Succeeded(); });
}

BucketAccess::Fetch BucketAccess::Begin(const Scanner& target, const std::string& path,
                                        std::uint64_t offset, std::uint64_t bytes) {
  Fetch fetch;
  if (IsLeftAlone(target)) return fetch;
  const auto desk = TransferDesk::Of(*target);
  if (!HasGoodCopy(platform, path, kMediaHead)) {
    fetch.push_back(desk->Fetch(target, {path, 0, kMediaHead, kMaxIndex, {}}));
  }
  for (const std::uint64_t end = offset + bytes; offset < end; offset += kPiece) {
    const std::uint64_t size = std::min(kPiece, end - offset);
    fetch.push_back(desk->Fetch(target, {path, offset, size, UINT64_MAX, {}}));
  }
  return fetch;
}

bool BucketAccess::Await(const Scanner& target, const Fetch& fetch) {
  bool all = !fetch.empty();
  lastWait = platform.clock.SteadyNs();
  for (const auto& ticket : fetch) {
    bool slow = false;
    while (!gaveUp && !ticket.WaitFor(kPatience)) {
      slow = true;
      Wait();
    }
    if (gaveUp) return false;
    if (platform.clock.SteadyNs() - lastWait >= std::chrono::nanoseconds(kPatience).count()) Wait();
    if (ticket.Succeeded()) continue;
    all = false;
    if (!slow) continue;
    silent.insert(target.get());  // the others would fail as slowly
    return false;
  }
  return all;
}

}  // namespace qv::kelvo
