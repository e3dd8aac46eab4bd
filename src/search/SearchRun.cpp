// SearchBase::Run: which files answer a request.

#include <array>
#include <string_view>
#include <unordered_set>

#include "search/ListRuns.h"
#include "search/PrepareFile.h"
#include "search/SearchBase.h"
#include "tree/LocalTime.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::CFileInfo;
using qv::kelvo::ListedFile;
using qv::kelvo::UtcMs;

// A file covers five minutes from the moment in its name.
constexpr std::int64_t kSlackSeconds = 5 * 60;

// Whether `seconds` lies in the weeks of 2007 in which clocks went by a rule that had just changed:
// recordings of then may stand an hour earlier.
bool IsInChangeOf2007(std::int64_t seconds) {
  const UtcMs first = qv::kelvo::FromLocal({2007, 3, 11, 1});
  const UtcMs last = qv::kelvo::FromLocal({2007, 4, 1, 3});
  return seconds * 1000 >= first && seconds * 1000 <= last;
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

class Walk {
 public:
  Walk(SearchRequest& searchRequest, std::int64_t rangeStart, std::int64_t rangeEnd,
       SearchTargetFileSystem& target, SearchResults& found, PlaybackFiles& playback)
      : request(searchRequest),
        start(rangeStart),
        end(rangeEnd),
        reader(target.MediaFiles()),
        results(found),
        files(playback) {}

  void EnterHour(UtcMs hour, const std::vector<std::string>& volumes) {
    hourStart = hour;
    const int today = qv::kelvo::ToLocal(hour).day;
    if (today != day) paths.clear();
    day = today;
    directories.clear();
    for (const std::string& volume : volumes) {
      directories.push_back(qv::kelvo::HourDirectory(volume, hour));
    }
  }

  void Visit(const ListedFile& file) {
    CFileInfo named;
    if (file.volumes.empty() || !named.ParsePath(file.name)) return;
    fileStart = hourStart / 1000 + std::int64_t{named.minute} * 60 + named.second;
    if (qv::kelvo::IsOutsideRange(fileStart, start, end + kSlackSeconds)) return;
    MomentTable moments{};
    const InputMasks wanted = Match(named.id, moments);
    if (wanted.video == 0 && wanted.audio == 0) return;
    const CopyChoice choice = ChooseCopies(file);
    for (const std::uint32_t volume : file.volumes) {
      const InputMasks masks = choice.Of(volume, wanted);
      if (masks.video == 0 && masks.audio == 0) continue;
      VisitCopy(directories[volume] + file.name, masks, moments);
    }
  }

 private:
  // The inputs asked for that the file may hold, and their moments.
  InputMasks Match(qv::kelvo::StreamID id, MomentTable& moments) {
    InputMasks masks;
    for (const RequestKey key : request.keys) {
      if (!qv::kelvo::IsSameDevice(key, id)) continue;
      const std::uint32_t bit = qv::kelvo::KeyBit(key);
      (qv::kelvo::IsAudioKey(key) ? masks.audio : masks.video) |= bit;
      const auto found = request.frameRequests.find(key);
      if (found != request.frameRequests.end()) moments[key & 31u] = &found->second;
    }
    return masks;
  }

  CopyChoice ChooseCopies(const ListedFile& file) {
    CopyChoice choice(file.volumes.front());
    if (file.volumes.size() == 1) return choice;
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

  void VisitCopy(const std::string& path, const InputMasks& masks, const MomentTable& moments) {
    const bool atMoments = !request.frameRequests.empty();
    // Only the moments of inputs that are read from this copy.
    MomentTable own{};
    bool momentsLeft = false;
    for (unsigned bit = 0; bit < 32; ++bit) {
      if (((masks.video | masks.audio) >> bit & 1u) == 0) continue;
      own[bit] = moments[bit];
      momentsLeft |= own[bit] != nullptr && !own[bit]->empty();
    }
    if (atMoments && !momentsLeft) return;
    CFileInfo info;
    if (!info.ParsePath(path)) return;
    if (request.type == 0) {
      List(info);
    } else if (!qv::kelvo::IsBucketSkipped(fileStart, bucket, request.resolution, start,
                                           end + kSlackSeconds)) {
      const FileRequest wanted{masks.video, masks.audio,        start,
                               end,         request.resolution, atMoments ? &own : nullptr};
      if (PrepareFile(reader, info, wanted, bucket)) AddFile(info);
    }
    reader.Close();
  }

  void List(CFileInfo& info) {
    if (end < start || !ListRuns(reader, info, request.resolution, runs)) return;
    for (const FileRun& run : runs) {
      if (run.last < start || run.first >= end) continue;
      results.AddRun(info, run, request.start, request.resolution);
    }
  }

  // In the night in which clocks are set back a directory of the day is visited twice.
  void AddFile(const CFileInfo& info) {
    if (paths.contains(info.path)) return;
    results.AddRows(info, request.start);
    files.emplace_back(info);
    paths.insert(files.back().path);
  }

  SearchRequest& request;
  const std::int64_t start;  // seconds since 1970
  const std::int64_t end;
  qv::kelvo::PSReader reader;
  SearchResults& results;
  PlaybackFiles& files;

  UtcMs hourStart = 0;
  int day = 0;                           // of the month
  std::vector<std::string> directories;  // of the hour, by volume
  std::int64_t fileStart = 0;            // seconds since 1970, by the file's name
  std::int64_t bucket = -1;              // the last one that got its picture
  std::vector<FileRun> runs;
  std::unordered_set<std::string_view> paths;  // of the day's `files`
};

}  // namespace

bool SearchBase::Run(SearchRequest& request, SearchTargetFileSystem& target, SearchResults& results,
                     PlaybackFiles& files) {
  std::int64_t start = AdjustTime(request.start);
  const std::int64_t end = AdjustTime(request.end);
  if (IsInChangeOf2007(start)) start -= 3600;
  UtcMs walker = qv::kelvo::LocalHourStart((start - kSlackSeconds) * 1000);
  const UtcMs walkEnd = (end + kSlackSeconds) * 1000;

  const std::vector<RequestKey> keys(request.keys.begin(), request.keys.end());
  Walk walk(request, start, end, target, results, files);
  std::vector<std::string> volumes;
  qv::kelvo::HourListing listing;
  while (target.SearchHour(walker, walkEnd, keys, volumes, listing)) {
    walk.EnterHour(walker, volumes);
    for (const ListedFile& file : listing) walk.Visit(file);
    const int hour = qv::kelvo::ToLocal(walker).hour;
    if (!ReportProgress(static_cast<std::uint32_t>(hour))) return false;
    walker = qv::kelvo::NextLocalHour(walker);
  }
  return true;
}

}  // namespace qvsvr::kelvo
