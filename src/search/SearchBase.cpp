#include "search/SearchBase.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "search/PrepareFile.h"
#include "tree/LocalTime.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::CFileInfo;
using qv::kelvo::ListedFile;
using qv::kelvo::UtcMs;

// Whether `seconds` lies in the weeks of 2007 in which clocks went by a rule that had just changed:
// recordings of then may stand an hour earlier.
bool IsInChangeOf2007(std::int64_t seconds) {
  const UtcMs first = qv::kelvo::FromLocal({2007, 3, 11, 1});
  const UtcMs last = qv::kelvo::FromLocal({2007, 4, 1, 3});
  return seconds * 1000 >= first && seconds * 1000 <= last;
}

// Whether the runs make no difference.
bool OneRunDoes(const CFileInfo& info, std::int64_t resolution) {
  return !info.RanBack() && resolution >= info.endTime - info.startTime;
}

void ListStreams(const CFileInfo& info, std::vector<FileRun>& runs) {
  for (unsigned stream = 0; stream < qv::kelvo::kStreamCount; ++stream) {
    const qv::kelvo::StreamRow& row = info.streamRows[stream];
    if (row.frames == 0) continue;
    runs.push_back({static_cast<std::uint8_t>(stream), row.flags, row.firstTime, row.lastTime});
  }
}

// The stretches of a recording. Fills the rows of `info`.
void ListRuns(const qv::kelvo::RunTable& table, CFileInfo& info, std::int64_t resolution,
              std::vector<FileRun>& runs) {
  using qv::kelvo::SecondsOf;
  runs.clear();
  FillStreamRows(table, info);
  if (OneRunDoes(info, resolution)) return ListStreams(info, runs);
  for (const qv::kelvo::PsiRunRecord& run : table.runs) {
    runs.push_back({run.stream, run.flags, SecondsOf({run.firstDate, run.firstMs}),
                    SecondsOf({run.lastDate, run.lastMs})});
  }
}

// The stretches of `info.path`: its runs, or one for each stream when it has no run table or the
// resolution makes no difference, which it does where the clock was set back. Fills the rows of
// `info`. False when the file can't be read.
bool ListRuns(qv::kelvo::PSReader& reader, CFileInfo& info, std::int64_t resolution,
              std::vector<FileRun>& runs) {
  using qv::kelvo::SecondsOf;
  runs.clear();
  if (!FillStreamRows(reader, info)) return false;
  if (OneRunDoes(info, resolution) || !reader.HasRunTable() || reader.GetRunCount() == 0) {
    ListStreams(info, runs);
    return true;
  }
  for (std::uint32_t number = 0; number < reader.GetRunCount(); ++number) {
    qv::kelvo::PSRun run;
    if (reader.GetRun(number, run) != qv::kelvo::kPsOk) return false;
    runs.push_back({run.stream, run.flags, SecondsOf(run.first), SecondsOf(run.last)});
  }
  return true;
}

struct InputMasks {
  std::uint32_t video = 0;
  std::uint32_t audio = 0;
};

// For each input the volume whose copy of the file has the most frames of it.
struct CopyChoice {
  explicit CopyChoice(std::uint32_t volume) {
    video.fill(volume);
    audio.fill(volume);
  }
  std::array<std::uint32_t, 32> video;
  std::array<std::uint32_t, 32> audio;

  [[nodiscard]] InputMasks Of(std::uint32_t volume, const InputMasks& wanted) const {
    InputMasks masks;
    for (unsigned bit = 0; bit < 32; ++bit) {
      if (video[bit] == volume) masks.video |= wanted.video & 1u << bit;
      if (audio[bit] == volume) masks.audio |= wanted.audio & 1u << bit;
    }
    return masks;
  }
};

// A file of the hour under visit that may answer the request.
struct DueFile {
  const ListedFile* listed = nullptr;
  qv::kelvo::StreamID id = 0;
  InputMasks wanted;                  // the inputs asked for that it may hold
  std::int64_t start = 0;             // seconds since 1970, by its name
  qv::kelvo::RunTables::Table known;  // of a listing, what it tells; null: it is to be opened
};

class Walk {
 public:
  Walk(SearchRequest& searchRequest, const TimeRange& searchRange, std::int64_t slackSeconds,
       SearchTargetFileSystem& fileSystem, SearchResults& found, PlaybackFiles& playback)
      : request(searchRequest),
        range(searchRange),
        slack(slackSeconds),
        target(fileSystem),
        byDirectory(fileSystem.SingleFiles().ByDirectory()),
        reader(byDirectory != nullptr ? *byDirectory : fileSystem.SingleFiles()),
        results(found),
        files(playback) {}

  void VisitHour(UtcMs hour, const std::vector<std::string>& volumes,
                 const qv::kelvo::HourListing& listing) {
    qv::kelvo::TargetList targets;
    target.GetTargets(targets, qv::kelvo::kVolumesLocal | qv::kelvo::kVolumesArchive, nullptr);
    mayNeedMending = !targets.empty();
    directories.clear();
    for (const std::string& volume : volumes) {
      directories.push_back(qv::kelvo::HourDirectory(volume, hour));
    }
    std::vector<DueFile> due = FilesOf(hour, listing);
    if (request.type == 0 && request.frameRequests.empty()) FindKnown(due);
    for (const DueFile& file : due) Visit(file);
  }

 private:
  // The files of this visit. In the night in which clocks are set back a directory is visited
  // twice: each visit takes the files that belong to it, in the order of time. Duplicates stay
  // behind.
  std::vector<DueFile> FilesOf(UtcMs hour, const qv::kelvo::HourListing& listing) {
    const qv::kelvo::HourTimes times(hour);
    std::vector<DueFile> due;
    due.reserve(listing.size());
    for (const ListedFile& listed : listing) {
      qv::kelvo::PathFields named;
      if (listed.volumes.empty() || !qv::kelvo::ParsePath(listed.name, named)) continue;
      DueFile file{&listed, named.id, Match(named.id), 0, nullptr};
      if (file.wanted.video == 0 && file.wanted.audio == 0) continue;
      file.start = times.IsEven() ? times.At(named.minute * 100 + named.second).first
                                  : StartOf(listed, times, named);
      due.push_back(file);
    }
    std::erase_if(due, [&](const DueFile& file) {
      return qv::kelvo::IsOutsideRange(file.start, range.start, range.end + slack, slack);
    });
    if (times.IsEven()) return due;
    const std::int64_t begin = hour / 1000;
    const std::int64_t end = qv::kelvo::NextLocalHour(hour) / 1000;
    std::erase_if(due,
                  [&](const DueFile& file) { return file.start < begin || file.start >= end; });
    std::ranges::stable_sort(due, {}, [](const DueFile& file) {
      return std::pair(qv::kelvo::ParseName(file.listed->name).isDuplicate, file.start);
    });
    return due;
  }

  // In an hour with two moments for a name: the one nearer to the file's first frame.
  std::int64_t StartOf(const ListedFile& file, const qv::kelvo::HourTimes& times,
                       const qv::kelvo::PathFields& named) {
    constexpr std::uint32_t kLast = 59;
    const qv::kelvo::PathTime start =
        times.At(std::min(named.minute, kLast) * 100 + std::min(named.second, kLast));
    if (start.first == start.last) return start.first;
    for (const std::uint32_t volume : file.volumes) {
      qv::kelvo::PackedTime first, last;
      if (reader.Open(directories[volume] + file.name) != qv::kelvo::kPsOk ||
          reader.GetFirstLast(qv::kelvo::kWholeFile, first, last) != qv::kelvo::kPsOk) {
        continue;
      }
      const std::int64_t second = qv::kelvo::SecondsOf(first);
      return std::abs(second - start.last) < std::abs(second - start.first) ? start.last
                                                                            : start.first;
    }
    return start.first;
  }

  // Those of which there is one copy that is known from before.
  void FindKnown(std::vector<DueFile>& due) {
    for (std::uint32_t volume = 0; volume < directories.size(); ++volume) {
      std::vector<DueFile*> single;
      std::vector<std::string_view> names;
      for (DueFile& file : due) {
        if (file.listed->volumes.size() != 1 || file.listed->volumes.front() != volume) continue;
        single.push_back(&file);
        names.push_back(file.listed->name);
      }
      if (single.empty()) continue;
      auto tables = target.FindTables(directories[volume], names);
      for (std::size_t i = 0; i < single.size(); ++i) single[i]->known = std::move(tables[i]);
    }
  }

  void Visit(const DueFile& file) {
    if (file.known != nullptr) return ListKnown(file);
    if (mayNeedMending) {
      for (const std::uint32_t volume : file.listed->volumes) {
        target.Mend(directories[volume] + file.listed->name);
      }
    }
    if (file.listed->volumes.size() == 1) {
      return VisitCopy(directories[file.listed->volumes.front()] + file.listed->name, file,
                       file.wanted);
    }
    const CopyChoice choice = ChooseCopies(*file.listed);
    for (const std::uint32_t volume : file.listed->volumes) {
      const InputMasks masks = choice.Of(volume, file.wanted);
      if (masks.video == 0 && masks.audio == 0) continue;
      VisitCopy(directories[volume] + file.listed->name, file, masks);
    }
  }

  void ListKnown(const DueFile& file) {
    if (range.end < range.start) return;
    known.id = file.id;
    ListRuns(*file.known, known, request.resolution, runs);
    AddRuns(known);
  }

  [[nodiscard]] InputMasks Match(qv::kelvo::StreamID id) const {
    InputMasks masks;
    for (const RequestKey key : request.keys) {
      if (!qv::kelvo::IsSameDevice(key, id)) continue;
      (qv::kelvo::IsAudioKey(key) ? masks.audio : masks.video) |= qv::kelvo::KeyBit(key);
    }
    return masks;
  }

  CopyChoice ChooseCopies(const ListedFile& file) {
    CopyChoice choice(file.volumes.front());
    std::array<std::uint32_t, 32> bestVideo{}, bestAudio{};
    for (const std::uint32_t volume : file.volumes) {
      CFileInfo copy;
      if (!copy.ParsePath(directories[volume] + file.name) || !FillStreamRows(reader, copy)) {
        continue;
      }
      for (unsigned stream = 0; stream < qv::kelvo::kStreamCount; ++stream) {
        const qv::kelvo::StreamRow& row = copy.streamRows[stream];
        const bool isVideo = stream < qv::kelvo::kVideoStreams;
        const std::size_t channel = row.channel & 31u;
        std::uint32_t& best = (isVideo ? bestVideo : bestAudio)[channel];
        if (row.frames <= best) continue;
        best = row.frames;
        (isVideo ? choice.video : choice.audio)[channel] = volume;
      }
    }
    return choice;
  }

  void VisitCopy(std::string path, const DueFile& file, const InputMasks& masks) {
    const bool atMoments = !request.frameRequests.empty();
    // Only the moments of inputs that are read from this copy.
    MomentTable own{};
    bool momentsLeft = false;
    for (auto& [key, moments] : request.frameRequests) {
      const bool isHere = !qv::kelvo::IsAudioKey(key) && qv::kelvo::IsSameDevice(key, file.id);
      if (!isHere || (masks.video & qv::kelvo::KeyBit(key)) == 0) continue;
      own[key & 31u] = &moments;
      momentsLeft |= !moments.empty();
    }
    if (atMoments && !momentsLeft) return;
    CFileInfo info;
    info.path = std::move(path);
    info.id = file.id;
    if (request.type == 0) {
      List(info);
    } else if (!qv::kelvo::IsBucketSkipped(file.start, bucket, request.resolution, range.start,
                                           range.end + slack, slack)) {
      const FileRequest wanted{masks.video, masks.audio, range, request.resolution,
                               atMoments ? &own : nullptr};
      if (PrepareFile(reader, info, wanted, bucket)) {
        results.AddRows(info, request.start);
        files.emplace_back(info);
      }
    }
    reader.Close();
    target.NoteDamage(reader, info.path);
  }

  void List(CFileInfo& info) {
    if (range.end < range.start || !ListRuns(reader, info, request.resolution, runs)) return;
    if (request.frameRequests.empty()) target.KeepTable(info.path, reader);
    AddRuns(info);
  }

  void AddRuns(const CFileInfo& info) {
    for (const FileRun& run : runs) {
      if (!range.MayReach(run.first, run.last)) continue;
      results.AddRun(info, run, request.start, request.resolution);
    }
  }

  SearchRequest& request;
  const TimeRange range;
  const std::int64_t slack;  // seconds
  SearchTargetFileSystem& target;
  const std::unique_ptr<qv::kelvo::MediaFiles> byDirectory;  // null where there are none such
  qv::kelvo::PSReader reader;
  SearchResults& results;
  PlaybackFiles& files;

  std::vector<std::string> directories;  // of the hour, by volume
  bool mayNeedMending = false;           // there are archives
  std::int64_t bucket = -1;              // the last one that got its picture
  std::vector<FileRun> runs;
  CFileInfo known;  // the file under visit, if its table is
};

}  // namespace

bool SearchBase::Run(SearchRequest& request, SearchTargetFileSystem& target, SearchResults& results,
                     PlaybackFiles& files) {
  TimeRange range{AdjustTime(request.start), AdjustTime(request.end)};
  if (IsInChangeOf2007(range.start)) range.start -= 3600;
  const std::int64_t slack = target.SlackSeconds();
  UtcMs walker = qv::kelvo::LocalHourStart((range.start - slack) * 1000);
  const UtcMs walkEnd = (range.end + slack) * 1000;

  const std::vector<RequestKey> keys(request.keys.begin(), request.keys.end());
  Walk walk(request, range, slack, target, results, files);
  std::vector<std::string> volumes;
  qv::kelvo::HourListing listing;
  while (target.SearchHour(walker, walkEnd, keys, volumes, listing)) {
    walk.VisitHour(walker, volumes, listing);
    const int hour = qv::kelvo::ToLocal(walker).hour;
    if (!ReportProgress(static_cast<std::uint32_t>(hour))) return false;
    walker = qv::kelvo::NextLocalHour(walker);
  }
  return !target.Buckets().GaveUp();
}

}  // namespace qvsvr::kelvo
