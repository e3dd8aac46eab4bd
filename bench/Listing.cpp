// Listings of many files, for the first and for the second time, and of none.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <boost/filesystem.hpp>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/Scenarios.h"
#include "bench/SearchTree.h"

namespace bench {
namespace {

constexpr int kFilesADay = 288;
constexpr std::size_t kIndexHead = 1088;
constexpr std::size_t kRun = 16;
constexpr std::size_t kMediaHead = 1978;

void ReadAt(int file, std::size_t size, off_t at) {
  std::array<char, kMediaHead> buffer;
  if (::pread(file, buffer.data(), size, at) != static_cast<ssize_t>(size)) {
    throw std::runtime_error("bare read failed");
  }
}

// CPU time of opening the files and reading what a listing needs of them.
std::int64_t BareLoopNs(const std::vector<std::string>& paths) {
  const auto runsAt = static_cast<off_t>(boost::filesystem::file_size(paths[0] + "i") - kRun);
  const std::int64_t cpu = ThreadCpuNs();
  for (const std::string& path : paths) {
    const int index = ::open((path + "i").c_str(), O_RDONLY);
    ReadAt(index, kIndexHead, 0);
    ReadAt(index, kRun, runsAt);
    ::close(index);
    const int media = ::open(path.c_str(), O_RDONLY);
    ReadAt(media, kMediaHead, 0);
    ::close(media);
  }
  return ThreadCpuNs() - cpu;
}

// Returns how many results the document has.
int List(SearchSite& site, const std::string& request) {
  int results = 0;
  site.host.Read(request, [&](const KelvoHostRequest& event) {
    if (event.SubCode != KELVO_SUB_SEARCH_RESULT) return 0u;
    const std::string_view text(static_cast<const char*>(event.Payload), event.Length);
    for (std::size_t at = 0; (at = text.find("<Result ", at)) != text.npos; ++at) ++results;
    return 0u;
  });
  return results;
}

void Compare(SearchSite& site, const std::string& what, int cameras, int days) {
  const std::vector<std::string> paths = site.Plant(cameras, days * kFilesADay, {});
  const std::string request =
      RequestText(0, kPlantBegin, kPlantBegin + days * std::int64_t{86400}, cameras);
  const auto count = static_cast<double>(paths.size());
  std::this_thread::sleep_for(std::chrono::seconds(4));  // younger ones aren't remembered
  std::vector<double> bare, first, second;
  // By the thread's CPU time: after a start other threads look at the drives.
  for (int run = 0; run < kRuns; ++run) {
    site.host.Stop();  // forgets what it has seen
    site.host.Start({0, 0, 0});
    bare.push_back(static_cast<double>(BareLoopNs(paths)) / 1000 / count);
    for (auto* own : {&first, &second}) {
      const std::int64_t cpu = ThreadCpuNs();
      const int results = List(site, request);
      own->push_back(static_cast<double>(ThreadCpuNs() - cpu) / 1000 / count);
      if (results != static_cast<int>(paths.size())) {
        throw std::runtime_error(std::to_string(results) + " results of " +
                                 std::to_string(paths.size()) + " files");
      }
    }
  }
  std::printf("  %s, %zu files: %.2f us CPU a file, %.2f us the second time, bare loop %.2f us\n",
              what.c_str(), paths.size(), Median(first), Median(second), Median(bare));
  Report("listing of " + what + ", CPU against a bare loop over the same bytes",
         Median(first) / Median(bare), "x", Wanted::AtMost, 1.4);
  Report("the same once more", Median(second) / Median(bare), "x", Wanted::AtMost, 0.4);
}

}  // namespace

void Listing(const std::string& module) {
  {
    SearchSite site(module);
    Compare(site, "30 days of one camera", 1, 30);
    constexpr std::int64_t kTenYears = 3652 * std::int64_t{86400};
    const std::int64_t begin = kPlantBegin - 2 * kTenYears;
    const int tests =
        site.host.CountLines(RequestText(0, begin, begin + kTenYears, 1), "dir exists ");
    Report("directory tests of an empty range of ten years", tests, "", Wanted::Below, 200);
  }
  SearchSite site(module);
  Compare(site, "a day of 16 cameras", 16, 1);
}

}  // namespace bench
