#include "search/Playback.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

#include "host/Log.h"
#include "search/SearchFile.h"
#include "tree/LocalTime.h"

namespace qvsvr::kelvo {
namespace {

std::string LocalText(qv::kelvo::UtcMs time) {
  const qv::kelvo::CalendarTime local = qv::kelvo::ToLocal(time);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", local.year, local.month,
                local.day, local.hour, local.minute, local.second);
  return text;
}

int MillisecondOf(qv::kelvo::UtcMs time) {
  return static_cast<int>(time % 1000);
}

// Merges the frames of all files by time. Files come in the order of their names, which is that of
// their beginnings, so only those need be open that begin before the first of the open ones ends.
class Streamer {
 public:
  Streamer(SearchHelper& searchHelper, SearchTargetFileSystem& fileSystem, PlaybackFiles& playback)
      : helper(searchHelper), target(fileSystem), files(playback) {}

  bool Run() {
    while (!files.empty() || !active.empty()) {
      OpenDueFiles();
      if (target.Buckets().GaveUp()) return false;
      while (!active.empty()) {
        const auto next = Earliest();
        if (!SendFrame(next->second)) return false;
        if (next->second.file->Remaining() != 0 && next->second.file->AdvanceFrame() == 0) continue;
        if (target.Buckets().GaveUp()) return false;
        if (!SendEmptyFrames(next->second)) return false;
        LogEnd(next->second);
        active.erase(next);
        break;
      }
    }
    return true;
  }

 private:
  struct OpenFile {
    std::unique_ptr<SearchFile> file;
    KelvoHostRequest event{};  // of the last frame that was sent
    qv::kelvo::UtcMs lastTime = 0;
  };
  using ActiveSet = std::multimap<std::int64_t, OpenFile>;  // by the file's last second

  void OpenDueFiles() {
    while (!files.empty() && (active.empty() || files.front().startTime < active.begin()->first)) {
      const std::int64_t end = files.front().endTime;
      auto file = std::make_unique<SearchFile>(target, std::move(files.front()));
      files.pop_front();
      if (const int error = file->Open(); error != 0) {
        LogPrintf(LogWarning, "%08lX open %s error %d",
                  static_cast<unsigned long>(helper.RequestId()), file->Path().c_str(), error);
        continue;
      }
      const qv::kelvo::UtcMs time = file->FrameTime();
      if (LogLevelEnabled(LogTrace)) {
        LogPrintf(LogTrace, "SEARCH: Start playback %s @ %s %d ms local.", file->Path().c_str(),
                  LocalText(time).c_str(), MillisecondOf(time));
      }
      active.emplace(end, OpenFile{std::move(file)});
    }
  }

  ActiveSet::iterator Earliest() {
    // The first of equals, which ends first.
    return std::ranges::min_element(
        active, {}, [](const auto& entry) { return entry.second.file->FrameTime(); });
  }

  bool SendFrame(OpenFile& open) {
    SearchFile& file = *open.file;
    const qv::kelvo::PSReadFrame& frame = file.Frame();
    constexpr std::size_t kHeaderLengthAt = 8;
    KelvoHostRequest& event = open.event;
    event = helper.NewRequest(KELVO_SUB_SEARCH_FRAME);
    event.Length = frame.size;
    event.Payload = file.Packet();
    event.Source = file.GetStreamId();
    KelvoFrameHeader& header = event.u.Header;
    header.Size = sizeof header;
    header.Version = 1;
    header.PayloadOffset = std::to_integer<std::uint32_t>(file.Packet()[kHeaderLengthAt]) + 9;
    header.Seconds = static_cast<std::uint32_t>(file.FrameTime() / 1000);
    header.Milliseconds = static_cast<std::uint16_t>(file.FrameTime() % 1000);
    const bool video = frame.stream < qv::kelvo::kVideoStreams;
    header.FrameType = video ? static_cast<std::uint8_t>(frame.frameType) : KELVO_FRAME_AUDIO;
    header.FrameFlags = frame.flags;
    const std::size_t extension = std::min(frame.userDataSize, sizeof header.Extension);
    header.ExtensionLength = static_cast<std::uint32_t>(extension);
    std::memcpy(header.Extension, file.UserData(), extension);
    open.lastTime = file.FrameTime();
    if (helper.SendFrame(event) != EventReply::GoOn) return false;
    file.NoteSent();
    return true;
  }

  // The host is owed an event for each frame of a file that stopped early.
  bool SendEmptyFrames(OpenFile& open) {
    open.event.Length = 0;
    for (std::uint32_t left = open.file->Remaining(); left != 0; --left) {
      if (helper.SendEmptyFrame(open.event) != EventReply::GoOn) return false;
    }
    return true;
  }

  void LogEnd(const OpenFile& open) {
    if (!LogLevelEnabled(LogTrace)) return;
    LogPrintf(LogTrace, "SEARCH: End playback %s @ %s %d ms local (%d frames).",
              open.file->Path().c_str(), LocalText(open.lastTime).c_str(),
              MillisecondOf(open.lastTime), static_cast<int>(open.file->FramesSent()));
  }

  SearchHelper& helper;
  SearchTargetFileSystem& target;
  PlaybackFiles& files;
  ActiveSet active;
};

}  // namespace

bool PlayBack(SearchHelper& helper, SearchTargetFileSystem& target, PlaybackFiles& files) {
  return Streamer(helper, target, files).Run();
}

}  // namespace qvsvr::kelvo
