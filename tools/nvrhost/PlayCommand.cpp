#include "nvrhost/PlayCommand.h"

#include <array>
#include <boost/filesystem.hpp>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <stdexcept>

#include "nvrhost/Exporter.h"
#include "nvrhost/Ledger.h"
#include "nvrhost/Report.h"

namespace nvrhost {
namespace {

using Steady = std::chrono::steady_clock;

// What came of one camera.
struct Played {
  std::array<std::uint64_t, 4> frames{};  // by type
  std::uint64_t bytes = 0;
  std::int64_t firstMs = 0, lastMs = 0;
  [[nodiscard]] std::uint64_t Total() const {
    return frames[0] + frames[1] + frames[2] + frames[3];
  }
};

// Takes the frames of one playback and does with them what the user asked.
class Player {
 public:
  Player(const PlayOptions& playOptions, const std::vector<StoredCamera>& chosen,
         const TimeRange& asked, Console& toConsole)
      : options(playOptions),
        cameras(chosen),
        range(asked),
        console(toConsole),
        played(chosen.size()) {
    if (!options.ledger.empty()) check.emplace(options.ledger);
    if (!options.exportPath.empty()) exporter.emplace(options.exportPath);
  }

  void TakeResults(const hostkit::SearchResults& results) {
    names.emplace(results, cameras);
    for (const auto& [streamId, stream] : names->All()) {
      totals.announced += static_cast<std::uint64_t>(stream.row.count);
      if (!exporter) continue;
      if (stream.mixed) {
        throw std::runtime_error(cameras[stream.camera].name +
                                 " changes its codec in this range; export a part of it");
      }
      exporter->AddStream(streamId, stream.row, cameras[stream.camera].name);
    }
  }

  void TakeFrame(const PlayedFrame& frame) {
    const auto* const stream = names ? names->Find(frame.streamId) : nullptr;
    if (stream == nullptr) {
      throw std::runtime_error("a frame of a stream that the result document doesn't name");
    }
    ++totals.frames;
    if (frame.empty) return;
    Count(played[stream->camera], frame);
    const bool audio = stream->row.input.audio;
    if (!audio) ++totals.videoFrames;
    if (check) {
      check->Take(
          EntryOfPlayed(cameras[stream->camera].ProviderId(audio), frame.header, frame.payload));
    }
    if (exporter) exporter->Take(frame);
    if (options.frames) Print(cameras[stream->camera], frame);
    ShowProgress(frame);
  }

  PlayTotals Finish(const SearchSession::Outcome& outcome) {
    console.EndProgress();
    totals.emptyFrames = outcome.emptyFrames;
    PrintCameras();
    totals.good = totals.frames > 0 && totals.emptyFrames == 0;
    if (totals.emptyFrames > 0) {
      std::printf("FAULT: %" PRIu64 " frames couldn't be read\n", totals.emptyFrames);
    }
    if (totals.announced != totals.frames) {
      totals.good = false;
      std::printf("FAULT: %" PRIu64 " frames announced, %" PRIu64 " played\n", totals.announced,
                  totals.frames);
    }
    if (exporter && totals.videoFrames > 0) FinishExport();
    if (check) PrintCheck();
    return totals;
  }

 private:
  void Count(Played& camera, const PlayedFrame& frame) {
    if (camera.Total() == 0) camera.firstMs = frame.UtcMs();
    camera.lastMs = frame.UtcMs();
    ++camera.frames[frame.header.FrameType & 3];
    camera.bytes += frame.payload.size();
    totals.bytes += frame.payload.size();
    if (totals.firstMs == 0) totals.firstMs = frame.UtcMs();
    totals.lastMs = frame.UtcMs();
  }

  static void Print(const StoredCamera& camera, const PlayedFrame& frame) {
    std::printf("%s  %-16s %c %8zu bytes  flags %02X  metadata %u\n",
                TimeText(frame.UtcMs()).c_str(), camera.name.c_str(),
                "AIPB"[frame.header.FrameType & 3], frame.payload.size(), frame.header.FrameFlags,
                frame.header.ExtensionLength);
  }

  void ShowProgress(const PlayedFrame& frame) {
    constexpr std::uint64_t kFramesBetween = 256;
    if (options.frames || totals.frames % kFramesBetween != 0) return;
    const std::int64_t beginMs = std::max(totals.firstMs, range.from * 1000);
    std::array<char, 120> text{};
    std::snprintf(text.data(), text.size(), "%7.1f s played  %9" PRIu64 " frames  %10s  at %s",
                  static_cast<double>(frame.UtcMs() - beginMs) / 1000, totals.frames,
                  SizeText(totals.bytes).c_str(), TimeText(frame.UtcMs()).c_str());
    console.Progress(text.data(), std::chrono::duration<double>(Steady::now() - begun).count());
  }

  void PrintCameras() const {
    std::printf("%-16s %8s %8s %8s %8s %10s  %s\n", "camera", "I", "P", "B", "audio", "size",
                "from");
    for (std::size_t index = 0; index < cameras.size(); ++index) {
      const auto& one = played[index];
      std::printf("%-16s %8" PRIu64 " %8" PRIu64 " %8" PRIu64 " %8" PRIu64 " %10s",
                  cameras[index].name.c_str(), one.frames[1], one.frames[2], one.frames[3],
                  one.frames[0], SizeText(one.bytes).c_str());
      if (one.Total() > 0) {
        std::printf("  %s to %s", TimeText(one.firstMs).c_str(), TimeText(one.lastMs).c_str() + 11);
      }
      std::printf("\n");
    }
    const double seconds = std::chrono::duration<double>(Steady::now() - begun).count();
    std::printf("%" PRIu64 " frames, %s in %.2f s\n", totals.frames, SizeText(totals.bytes).c_str(),
                seconds);
  }

  void FinishExport() {
    exporter->Finish();
    totals.exportedFrames = exporter->VideoFrames();
    for (const auto& notice : exporter->Notices()) std::printf("%s\n", notice.c_str());
    std::printf("%s: %" PRIu64 " video frames, %s\n", exporter->Path().c_str(),
                totals.exportedFrames,
                SizeText(boost::filesystem::file_size(exporter->Path())).c_str());
  }

  void PrintCheck() {
    const auto& result = check->Result();
    totals.verified = result.same;
    totals.missing = result.missing;
    const std::uint64_t wrong =
        result.different + result.unknown + (options.complete ? result.missing : 0);
    std::printf("verified: %" PRIu64 " frames are what was given, %" PRIu64 " differ, %" PRIu64
                " were never given, %" PRIu64 " given in between weren't played\n",
                result.same, result.different, result.unknown, result.missing);
    if (!result.first.empty()) std::printf("FAULT: %s\n", result.first.c_str());
    totals.good = totals.good && wrong == 0;
  }

  const PlayOptions& options;
  const std::vector<StoredCamera>& cameras;
  const TimeRange range;
  Console& console;
  const Steady::time_point begun = Steady::now();
  std::vector<Played> played;
  std::optional<StreamNames> names;
  std::optional<LedgerCheck> check;
  std::optional<Exporter> exporter;
  PlayTotals totals;
};

}  // namespace

void AddPlayOptions(CLI::App& command, PlayOptions& options) {
  AddSearchOptions(command, options.search);
  OptionGroup group(command, "Play");
  group.Add("--export", options.exportPath, "FILE",
            "write one camera's video and audio to FILE (.mp4, .mkv, .mov), not encoded again");
  auto& ledger = group.Add("--verify", options.ledger, "LEDGER",
                           "compare every frame with what record --ledger noted");
  command
      .add_flag("--complete", options.complete,
                "with --verify: a frame given in between and not played is a fault, too")
      ->group("Play")
      ->needs(&ledger);
  command.add_flag("--frames", options.frames, "print a line for each frame")->group("Play");
}

PlayTotals PlayRange(PlayOptions options, const std::string& programPath) {
  // The session changes the current directory.
  for (auto* const path : {&options.exportPath, &options.ledger}) {
    if (!path->empty()) *path = boost::filesystem::absolute(*path).string();
  }
  Console console;
  SearchSession session(options.search, programPath, console);
  const auto cameras = ChooseCameras(session.What(), options.search.cameras);
  if (!options.exportPath.empty() && cameras.size() != 1) {
    throw std::runtime_error("--export wants one camera (--camera)");
  }
  const auto range = RangeOf(options.search, session.What());
  hostkit::SearchRequest request;
  request.type = 1;
  request.start = range.from;
  request.end = range.to;
  request.inputs = InputsOf(cameras);

  Player player(options, cameras, range, console);
  const auto outcome =
      session.Ask(request, {[&player](const auto& results) { player.TakeResults(results); },
                            [&player](const PlayedFrame& frame) { player.TakeFrame(frame); }});
  if (!outcome.answered || !outcome.ended) throw std::runtime_error("the search wasn't answered");
  return player.Finish(outcome);
}

int Play(const PlayOptions& options, const std::string& programPath) {
  return PlayRange(options, programPath).good ? 0 : 1;
}

}  // namespace nvrhost
