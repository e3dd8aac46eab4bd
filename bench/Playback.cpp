// Playback: its throughput, what comes before the first frame, and the memory that a search takes.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/Scenarios.h"
#include "bench/SearchTree.h"

namespace bench {
namespace {

constexpr std::uint32_t kFrameBytes = 20 * 1024;
constexpr std::size_t kCatBlock = 128 * 1024;

// What host and bare loop do with what they are given.
std::uint64_t taken = 0;
std::uint32_t Take(const void* bytes, std::uint32_t size) {
  if (size != 0) taken += size + static_cast<const unsigned char*>(bytes)[size - 1];
  return 0;
}

std::int64_t BareLoopNs(const std::vector<std::string>& paths) {
  std::vector<char> block(kCatBlock);
  const std::int64_t cpu = ProcessCpuNs();
  for (const std::string& path : paths) {
    const int file = ::open(path.c_str(), O_RDONLY);
    ssize_t size = 0;
    while ((size = ::read(file, block.data(), block.size())) > 0) {
      (void)Take(block.data(), static_cast<std::uint32_t>(size));
    }
    ::close(file);
  }
  return ProcessCpuNs() - cpu;
}

void Throughput(const std::string& module) {
  constexpr int kFiles = 2, kFrames = 5000;
  SearchSite site(module);
  const auto paths = site.Plant(1, kFiles, {1, kFrames, kFrameBytes, 60});
  double bytes = 0;
  for (const std::string& path : paths) bytes += double(boost::filesystem::file_size(path));
  const std::string request = RequestText(1, kPlantBegin, kPlantBegin + kFiles * kPlantSeconds, 1);
  std::vector<double> bare, own;
  for (int run = 0; run < kRuns; ++run) {
    bare.push_back(bytes / static_cast<double>(BareLoopNs(paths)));
    int frames = 0;
    const std::int64_t cpu = ProcessCpuNs();
    site.host.Read(request, [&](const KelvoHostRequest& event) {
      if (event.SubCode != KELVO_SUB_SEARCH_FRAME) return 0u;
      ++frames;
      return Take(event.Payload, event.Length);
    });
    own.push_back(bytes / static_cast<double>(ProcessCpuNs() - cpu));
    if (frames != kFiles * kFrames) throw std::runtime_error("frames are missing");
  }
  std::printf("  20 KiB frames: %.2f GB per CPU second, cat's loop %.2f\n", Median(own),
              Median(bare));
  Report("playback, throughput against reading with cat's block size", Median(own) / Median(bare),
         "x", Wanted::AtLeast, 0.95);
}

// Bytes that this process has read by system calls.
std::int64_t BytesRead() {
  std::ifstream io("/proc/self/io");
  std::string name;
  std::int64_t count = 0;
  io >> name >> count;
  return count;
}

struct Lead {
  double bytes = 0;  // read before the first frame came
  double ms = 0;     // of CPU until then
};

Lead LeadOf(SearchSite& site, const std::string& request) {
  Lead lead;
  const std::int64_t before = BytesRead();
  const std::int64_t cpu = ProcessCpuNs();
  site.host.Read(request, [&](const KelvoHostRequest& event) {
    if (event.SubCode != KELVO_SUB_SEARCH_FRAME) return 0u;
    lead.ms = static_cast<double>(ProcessCpuNs() - cpu) / 1e6;
    lead.bytes = static_cast<double>(BytesRead() - before);
    return 1u;
  });
  if (lead.bytes == 0) throw std::runtime_error("no frame came");
  return lead;
}

// A range at the end of a file has the longest way to its first frame; what is read for one at the
// start, where there is no way, is the opening of the file.
void FirstFrame(const std::string& module) {
  constexpr int kChannels = 16, kFrames = 25 * int{kPlantSeconds};
  SearchSite site(module);
  const auto paths = site.Plant(1, 1, {kChannels, kFrames, 64});
  const auto indexBytes = static_cast<double>(boost::filesystem::file_size(paths[0] + "i"));
  constexpr std::int64_t kEnd = kPlantBegin + kPlantSeconds;
  const Lead atStart = LeadOf(site, RequestText(1, kPlantBegin - 1, kPlantBegin + 1, 1, kChannels));
  const Lead atEnd = LeadOf(site, RequestText(1, kEnd - 2, kEnd - 1, 1, kChannels));
  std::printf("  first frame in a file of %d: after %.1f ms CPU at the start, %.1f at the end\n",
              kChannels * kFrames, atStart.ms, atEnd.ms);
  Report("passes of the index before the first frame of a range",
         (atEnd.bytes - atStart.bytes) / indexBytes, "", Wanted::AtMost, 1);
}

// The most that a search holds at a time beyond what was there before it, in bytes.
double PeakBytes(SearchSite& site, const std::string& request) {
  ::malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";  // the peak begins anew
  const double before = ResidentMiB();
  site.host.Read(request, [](const KelvoHostRequest& event) {
    return event.SubCode == KELVO_SUB_SEARCH_FRAME ? 1u : 0u;
  });
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kiB = 0;
    if (word == "VmHWM:" && status >> kiB) return kiB * 1024 - before * (1 << 20);
  }
  throw std::runtime_error("the system doesn't tell the peak of memory");
}

}  // namespace

void Playback(const std::string& module) {
  Throughput(module);
  FirstFrame(module);
}

void SearchMemory(const std::string& module) {
  SearchSite site(module);
  constexpr int kFiles = 8640;
  constexpr std::int64_t kElsewhere = kPlantBegin + 2 * kFiles * kPlantSeconds;
  (void)site.Plant(1, kFiles, {1, 30, 64});
  const double none = PeakBytes(site, RequestText(1, 0, 3600, 1));
  std::this_thread::sleep_for(std::chrono::seconds(4));  // younger ones aren't remembered
  for (const int type : {0, 1}) {
    const std::string request =
        RequestText(type, kPlantBegin, kPlantBegin + kFiles * kPlantSeconds, 1);
    (void)PeakBytes(site, request);  // what is remembered of recordings is no search's own
    const double all = PeakBytes(site, request);
    Report(std::string(type == 0 ? "listing" : "playback") + ", peak of memory per matching file",
           (all - none) / kFiles, " bytes", Wanted::AtMost, type == 0 ? 120 : 500);
  }
  double peak[2];
  int number = 0;
  for (const int frames : {75, 7500}) {
    const std::int64_t begin = kElsewhere + number * 3600;
    (void)site.Plant(1, 1, {16, frames, 64, 300'000 / frames}, begin);
    peak[number++] = PeakBytes(site, RequestText(1, begin + 290, begin + 295, 1, 16));
  }
  Report("memory of a search in a file of 120,000 frames, beyond that for 1,200",
         (peak[1] - peak[0]) / 1024, " KiB", Wanted::AtMost, 256);
}

}  // namespace bench
