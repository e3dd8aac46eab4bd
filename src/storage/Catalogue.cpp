#include "storage/Catalogue.h"

#include <algorithm>
#include <tuple>

#include "tree/HourListing.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::kNoTime;
using qv::kelvo::kSecondsPerHour;

// A pass serves the questions of so long; one that isn't over, as long as the next question comes
// within the longer time: begun anew, it might never get to its end on a slow disk.
constexpr std::int64_t kPassNs = std::int64_t{5} * 1'000'000'000;
constexpr std::int64_t kAbandonedNs = std::int64_t{120} * 1'000'000'000;

Catalogue::Answer NotFound(Catalogue::Outcome outcome, std::uint32_t protectedFiles = 0) {
  Catalogue::Answer answer;
  answer.outcome = outcome;
  answer.protectedFiles = protectedFiles;
  return answer;
}

}  // namespace

Catalogue::Catalogue(qv::kelvo::Platform& system, Protection& rules)
    : platform(system), protection(rules) {}

void Catalogue::SetVolumes(const std::vector<std::string>& roots) {
  if (roots == volumes) return;
  std::vector<std::size_t> places(volumes.size());
  for (std::size_t i = 0; i < volumes.size(); ++i) {
    places[i] = static_cast<std::size_t>(std::ranges::find(roots, volumes[i]) - roots.begin());
  }
  for (Hour& hour : hours) hour.volume = places[hour.volume];
  std::erase_if(hours, [&](const Hour& hour) { return hour.volume == roots.size(); });
  std::ranges::sort(hours, {}, [](const Hour& hour) { return std::tie(hour.start, hour.volume); });
  volumes = roots;
  cursor.reset();
}

// Nothing is an answer that stops recording, so it is only given by a pass that has seen what was
// recorded since: unless the question allows for less, another one is made for it.
Catalogue::Answer Catalogue::Oldest(const Question& question, WorkLimit& limit) {
  const std::int64_t now = platform.clock.SteadyNs();
  if (unknown && now < resumeNs && !limit.Patient()) return NotFound(Outcome::Unknown);
  const bool over = unknown ? now - resumeNs >= kAbandonedNs : now - passNs >= kPassNs;
  if (!cursor || over) BeginPass(now);
  revision = protection.Revision();
  Answer answer = Search(question, limit);
  if (answer.outcome == Outcome::Nothing && (dropped || (!fresh && !question.mayBeOld))) {
    // What was recorded since the pass began is in none of it.
    BeginPass(now);
    answer = Search(question, limit);
  }
  unknown = answer.outcome == Outcome::Unknown;
  fresh &= unknown;
  if (unknown) resumeNs = platform.clock.SteadyNs() + kPauseNs;
  return answer;
}

void Catalogue::BeginPass(std::int64_t nowNs) {
  cursor.emplace(platform.directories, volumes);
  passNs = nowNs;
  read = 0;
  allRead = dropped = false;
  fresh = true;
  prefix = {};
}

// The hours at the beginning of which nothing may go are a prefix that grows with each question, as
// long as rules, volumes and the time allow; so a question begins where the last one found
// something. Hours are taken together that are of one time: the oldest file may be on any volume.
Catalogue::Answer Catalogue::Search(const Question& question, WorkLimit& limit) {
  std::vector<bool> asked(volumes.size());
  for (std::size_t i = 0; i < volumes.size(); ++i) {
    asked[i] = std::ranges::find(question.roots, volumes[i]) != question.roots.end();
  }
  if (prefix.revision != revision || NowSeconds() >= prefix.until || prefix.asked != asked) {
    prefix = {.revision = revision, .asked = std::move(asked)};
  }
  for (;;) {
    const std::size_t begin = prefix.hours;
    if (begin == read) {
      if (allRead) return NotFound(Outcome::Nothing, prefix.protectedFiles);
      if (limit.Met()) return NotFound(Outcome::Unknown);
      allRead = !ReadOn(limit);
      continue;
    }
    std::size_t end = begin + 1;
    while (end < read && hours[end].start == hours[begin].start) ++end;
    Answer answer = OldestOf(begin, end, question, limit);
    if (answer.outcome != Outcome::Nothing) return answer;
    prefix.hours = end;
    for (std::size_t i = begin; i < end; ++i) {
      if (!prefix.asked[hours[i].volume]) continue;
      prefix.until = std::min(prefix.until, hours[i].until);
      prefix.protectedFiles += hours[i].protectedFiles;
    }
  }
}

Catalogue::Answer Catalogue::OldestOf(std::size_t begin, std::size_t end, const Question& question,
                                      WorkLimit& limit) {
  Answer oldest = NotFound(Outcome::Nothing, prefix.protectedFiles);
  oldest.time = kNoTime;
  for (std::size_t i = begin; i < end; ++i) {
    Hour& hour = hours[i];
    if (!prefix.asked[hour.volume]) continue;
    limit.Spend(1);
    if (!IsSettled(hour) && !Judge(hour, question, limit)) return NotFound(Outcome::Unknown);
    oldest.protectedFiles += hour.protectedFiles;
    if (!hour.listed) continue;
    const Candidate& candidate = hour.candidates[hour.next];
    const std::int64_t time = hour.times->At(candidate.number).first;
    if (time >= oldest.time) continue;
    oldest.outcome = Outcome::Found;
    oldest.path = hour.path + candidate.name;
    oldest.root = volumes[hour.volume];
    oldest.time = time;
    foundIn = i;
  }
  return oldest;
}

void Catalogue::Drop() {
  ++hours[foundIn].next;
  dropped = true;
}

bool Catalogue::ReadOn(WorkLimit& limit) {
  if (cursor->ListAhead()) {
    limit.Spend(WorkLimit::kDisk);
    return true;
  }
  // A stretch without an hour is passed in one go: a year of it costs 24 questions at most.
  limit.Spend(volumes.size());
  auto found = cursor->Next(platform.clock.NowMs());
  if (!found) {
    hours.erase(hours.begin() + static_cast<std::ptrdiff_t>(read), hours.end());
    return false;
  }
  for (auto& directory : found->directories) Meet(std::move(directory), found->start / 1000);
  return true;
}

// Takes a directory into the pass, with what is known of it from an earlier one.
void Catalogue::Meet(qv::kelvo::HourCursor::Directory directory, std::int64_t start) {
  const auto from = hours.begin() + static_cast<std::ptrdiff_t>(read);
  auto to = from;
  const auto isBefore = [&](const Hour& hour) {
    return std::tie(hour.start, hour.volume) < std::tie(start, directory.volume);
  };
  while (to != hours.end() && isBefore(*to)) ++to;  // they have gone
  auto place = hours.erase(from, to);
  if (place == hours.end() || place->start != start || place->volume != directory.volume) {
    place = hours.emplace(place);
    place->start = start;
    place->volume = directory.volume;
    place->path = std::move(directory.path);
  }
  ++read;
  Hour& hour = *place;
  hour.stampSeen = platform.directories.ChangeStamp(hour.path);
  if (hour.listed || hour.stampSeen == 0 || hour.stampSeen != hour.stamp) hour.revision = 0;
  hour.listed = false;
}

// The names alone: that costs one listing, and heads are read one by one as far as a question asks.
void Catalogue::List(Hour& hour) {
  hour.listed = hour.lasting = true;
  hour.revision = revision;
  hour.until = kNoTime;
  hour.protectedFiles = 0;
  hour.candidates.clear();
  hour.next = 0;
  hour.times.emplace(hour.start * 1000);
  qv::kelvo::ListRecordings(
      platform.directories, hour.path, qv::kelvo::ListSizes::No,
      [&](const qv::kelvo::NamedRecording& recording) {
        hour.candidates.push_back({recording.number, std::string(recording.name)});
        return true;
      });
  std::ranges::sort(hour.candidates, {}, [](const Candidate& candidate) {
    return std::tie(candidate.number, candidate.name);
  });
}

// Stops at the first file that may go, without taking that for the hour's verdict: whoever asked
// removes it, and the next question goes on from there.
bool Catalogue::Judge(Hour& hour, const Question& question, WorkLimit& limit) {
  // What was judged under other rules, or before time changed a verdict, is judged anew.
  if (!hour.listed || hour.revision != revision || NowSeconds() >= hour.until) {
    if (limit.Met()) return false;
    limit.Spend(WorkLimit::kDisk);
    List(hour);
  }
  for (; hour.next < hour.candidates.size(); ++hour.next) {
    if (limit.Met()) return false;
    const Candidate& candidate = hour.candidates[hour.next];
    const RecordingEntry file{hour.path, candidate.name, hour.times->At(candidate.number)};
    const std::uint64_t heads = protection.HeadsRead();
    const Verdict verdict = protection.Check(file, hour.heads);
    limit.Spend(1 + (protection.HeadsRead() - heads) * WorkLimit::kDisk);
    if (verdict.removable == Removable::Yes) {
      if (!question.except || !question.except(file.Path())) return true;
      hour.lasting = false;
      continue;
    }
    ++hour.protectedFiles;
    hour.until = std::min(hour.until, verdict.until);
    hour.lasting &= verdict.judged;
  }
  Settle(hour);
  return true;
}

// All files were judged. The verdict holds for this pass; for later ones only if it was about files
// that are final, none of which was passed over for a reason of the moment.
void Catalogue::Settle(Hour& hour) {
  // The verdicts over files that are being written, or were a moment ago, aren't final.
  const std::int64_t final = hour.start + 2 * kSecondsPerHour + Protection::kFinalAge;
  hour.stamp = hour.lasting && final < NowSeconds() ? hour.stampSeen : 0;
  hour.listed = false;
  hour.candidates = {};
  hour.times.reset();
}

}  // namespace qvsvr::kelvo
