#include "nvrhost/Summary.h"

#include <array>
#include <boost/filesystem.hpp>
#include <cstdio>
#include <numeric>

#include "kelvo/host_abi.h"
#include "nvrhost/Report.h"

namespace nvrhost {
namespace {

namespace fs = boost::filesystem;
using Counts = std::array<std::uint64_t, 4>;

std::uint64_t Sum(const Counts& counts) {
  return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
}

// Frames on disk for each video provider id. A file's id names the device, the stream's channel the
// camera of that device.
std::map<std::uint32_t, Counts> CountKept(const std::vector<RecordingFile>& files) {
  std::map<std::uint32_t, Counts> kept;
  for (const auto& file : files) {
    for (const auto& stream : file.streams) {
      if (stream.Total() == 0) continue;
      auto& counts = kept[(file.id & ~0xFFu) | (stream.channel & 15u)];
      for (std::size_t type = 0; type < counts.size(); ++type) counts[type] += stream.frames[type];
    }
  }
  return kept;
}

void PrintRow(const char* name, const Counts& given, const Counts& kept) {
  std::printf("%-12s", name);
  for (const std::size_t type : {KELVO_FRAME_I, KELVO_FRAME_P, KELVO_FRAME_B, KELVO_FRAME_AUDIO}) {
    std::printf(" %9llu", static_cast<unsigned long long>(given[type]));
  }
  std::printf(" %10llu %10llu %10lld\n", static_cast<unsigned long long>(Sum(given)),
              static_cast<unsigned long long>(Sum(kept)),
              static_cast<long long>(Sum(given)) - static_cast<long long>(Sum(kept)));
}

}  // namespace

WrittenFiles::WrittenFiles(std::string below) : directory(std::move(below)) {
  for (const auto& path : FindRecordings(directory)) {
    before[path] = {fs::file_size(path), fs::last_write_time(path)};
  }
}

std::vector<RecordingFile> WrittenFiles::Read() const {
  std::vector<RecordingFile> files;
  for (const auto& path : FindRecordings(directory)) {
    const auto known = before.find(path);
    if (known != before.end() && known->second.size == fs::file_size(path) &&
        known->second.changed == fs::last_write_time(path)) {
      continue;
    }
    files.push_back(ReadRecording(path));
  }
  return files;
}

bool PrintSummary(const std::vector<Camera>& cameras, const std::vector<RecordingFile>& files,
                  const RunTotals& totals) {
  const auto keptById = CountKept(files);
  bool good = totals.outstanding == 0 && totals.badReleases == 0;
  Counts allGiven{}, allKept{};
  std::uint64_t refused = 0, written = 0;

  std::printf("\n%-12s %9s %9s %9s %9s %10s %10s %10s\n", "camera", "I", "P", "B", "audio", "given",
              "kept", "dropped");
  for (const auto& camera : cameras) {
    const auto found = keptById.find(camera.videoProvider);
    const Counts kept = found == keptById.end() ? Counts{} : found->second;
    PrintRow(camera.name.c_str(), camera.given, kept);
    for (std::size_t type = 0; type < kept.size(); ++type) {
      good = good && kept[type] <= camera.given[type];
      allGiven[type] += camera.given[type];
      allKept[type] += kept[type];
    }
    refused += camera.refused;
  }
  if (cameras.size() > 1) PrintRow("total", allGiven, allKept);

  for (const auto& file : files) {
    written += file.mediaBytes + file.indexBytes;
    if (file.fault.empty() && file.closed) continue;
    good = false;
    std::printf("FAULT: %s: %s\n", file.path.c_str(),
                file.fault.empty() ? "not closed" : file.fault.c_str());
  }
  std::printf("\n");
  if (totals.undecided > 0) {
    std::printf("undecided when recording stopped: %lld buffers\n",
                static_cast<long long>(totals.undecided));
  }
  if (refused > 0) {
    std::printf("refused by the plug-in: %llu\n", static_cast<unsigned long long>(refused));
  }
  std::printf("buffers outstanding: %lld, released too often: %lld\n",
              static_cast<long long>(totals.outstanding),
              static_cast<long long>(totals.badReleases));
  std::printf("log lines: %llu of warnings, %llu of errors\n",
              static_cast<unsigned long long>(totals.warnings),
              static_cast<unsigned long long>(totals.errors));
  std::printf("given %s, written %s in %zu recording%s, %.1f s, %.1f MB/s\n",
              SizeText(totals.payloadBytes).c_str(), SizeText(written).c_str(), files.size(),
              files.size() == 1 ? "" : "s", totals.seconds,
              totals.seconds > 0 ? static_cast<double>(written) / 1e6 / totals.seconds : 0.0);
  return good;
}

}  // namespace nvrhost
