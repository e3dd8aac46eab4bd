// Many cameras, many drives and many bookmarks: what must not grow with what isn't touched.
#include <algorithm>
#include <atomic>
#include <boost/filesystem.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "bench/Scenarios.h"
#include "bench/StorageSite.h"

namespace bench {
namespace {

namespace fs = boost::filesystem;

constexpr int kCameras = 256;
constexpr int kManyDrives = 26;
constexpr int kFramesPerSecond = 25;
constexpr int kSeconds = 12;
constexpr std::size_t kFrameSize = 1024;
constexpr char kExpiring[] = "<Expiration Type='1' Days='5'/>";

// CPU of the worker and questions about free space.
struct FrameCost {
  double us = 0;
  double looks = 0;
};

enum class Room { Plenty, Protected, NoDrive };

void SetDrives(Site& site, int count, Room room) {
  site.drives.names.clear();
  site.drives.freeGB.clear();
  for (int drive = 0; room != Room::NoDrive && drive < count; ++drive) {
    const std::string name{static_cast<char>('a' + drive), '/'};
    fs::create_directories(name);
    site.drives.names.push_back(name);
    if (room == Room::Plenty) site.drives.freeGB[name] = 800;
  }
}

FrameCost MeasureFrames(int cameras, int drives, const std::string& schedule, Room room) {
  if (room == Room::Protected) PlantTree(16, 1);
  Site site;
  SetDrives(site, drives, room);
  site.Open();
  if (room == Room::Protected) site.Apply("<Expiration Type='1' Days='100'/>");
  FrameCost cost;
  {
    Recorder recorder(site, cameras, kFrameSize, schedule);
    const auto give = [&](int seconds) {
      for (int second = 0; second < seconds; ++second) {
        recorder.Give(cameras * kFramesPerSecond);
        site.clock.Pass(1);
      }
    };
    give(2);
    const int frames = cameras * kFramesPerSecond * kSeconds;
    site.drives.looks = 0;
    cost.us = CpuMs([&] { give(kSeconds); }) * 1000 / frames;
    cost.looks = static_cast<double>(site.drives.looks) / frames;
  }
  for (char drive = 'a'; drive <= 'z'; ++drive) fs::remove_all(std::string(1, drive));
  return cost;
}

// By turns; medians.
void MeasureWorkers() {
  struct Layout {
    const char* what;
    int cameras, drives;
    std::string schedule;
    Room room;
    std::vector<double> us;
    double looks = 0;
  };
  Layout layouts[] = {{"plain, 2 drives", 16, 2, "", Room::Plenty, {}},
                      {"plain, 2 drives", kCameras, 2, "", Room::Plenty, {}},
                      {"plain, 26 drives", kCameras, kManyDrives, "", Room::Plenty, {}},
                      {"expiring, 26 drives", kCameras, kManyDrives, kExpiring, Room::Plenty, {}},
                      {"all protected", kCameras, 2, "", Room::Protected, {}},
                      {"no drive", kCameras, 0, "", Room::NoDrive, {}}};
  for (int run = 0; run < kRuns; ++run) {
    for (Layout& layout : layouts) {
      const FrameCost cost =
          MeasureFrames(layout.cameras, layout.drives, layout.schedule, layout.room);
      layout.us.push_back(cost.us);
      layout.looks = cost.looks;
    }
  }
  for (const Layout& layout : layouts) {
    std::printf("  %3d cameras, %s: %.2f us a frame\n", layout.cameras, layout.what,
                Median(layout.us));
  }
  const auto against = [&](int layout, int plain) {
    return Median(layouts[layout].us) / Median(layouts[plain].us);
  };
  Report("cost per frame, 256 cameras / 16", against(1, 0), "x", Wanted::AtMost, 1.5);
  Report("cost per frame, 256 expiring inputs, 26 drives / plain", against(3, 2), "x",
         Wanted::AtMost, 1.3);
  Report("cost per frame, 256 cameras, all protected / plain", against(4, 1), "x", Wanted::AtMost,
         3);
  Report("cost per frame, 256 cameras, no drive / plain", against(5, 1), "x", Wanted::AtMost, 3);
  Report("looks at a drive per frame, all protected", layouts[4].looks / 2, "", Wanted::AtMost, 1);
}

std::string CasesText(int bookmarks, int perCase) {
  std::string text = "<qDVR><Cases ID='393216'>";
  for (int i = 0; i < bookmarks; ++i) {
    if (i % perCase == 0) text += "<Case ID='case " + std::to_string(i / perCase) + "'>";
    const std::int64_t start = kTreeNow - 86400 + i % 86400;
    text += "<Bookmark ID='" + std::to_string(i) + "' Start='" + std::to_string(start) + "' End='" +
            std::to_string(start + 60) + "'><Devices ID='1179648'><Device Number='" +
            std::to_string(i % 64) + "'><Video/></Device></Devices></Bookmark>";
    if (i % perCase == perCase - 1 || i == bookmarks - 1) text += "</Case>";
  }
  return text + "</Cases></qDVR>";
}

// The greatest resident memory since the last call, in MiB.
double TakePeakMiB() {
  double peak = 0;
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmHWM:") status >> peak;
  }
  std::ofstream("/proc/self/clear_refs") << 5;
  return peak / 1024;
}

void MeasureCases(int bookmarks, int perCase, double limitMs) {
  Site site;
  SetDrives(site, 2, Room::Plenty);
  site.Open();
  Recorder recorder(site, 1, kFrameSize);
  // Bookmarks go into a file that is there.
  recorder.Configure("<qDVR><Storage ID='327680' ContentAge='6'/></qDVR>");
  const std::string text = CasesText(bookmarks, perCase);
  const std::string other = CasesText(bookmarks - 1, perCase);
  (void)TakePeakMiB();
  const double before = ResidentMiB();
  const double first = CpuMs([&] { recorder.Configure(text); });
  const double firstPeak = TakePeakMiB() - before;
  const auto saved = std::filesystem::last_write_time("kelvo.xml");
  const double again = CpuMs([&] { recorder.Configure(text); });
  const bool savedAgain = std::filesystem::last_write_time("kelvo.xml") != saved;
  const double changed = CpuMs([&] { recorder.Configure(other); });
  const double peak = std::max(firstPeak, TakePeakMiB() - before);
  const double delta = CpuMs(
      [&] { recorder.Configure("<qDVR Delta='1'><Storage ID='327680' ContentAge='7'/></qDVR>"); });
  std::printf(
      "  %d bookmarks, %d a case: first %.0f ms, again %.0f ms%s, others %.0f ms, settings "
      "%.0f ms, %.0f MiB\n",
      bookmarks, perCase, first, again, savedAgain ? " and a save" : "", changed, delta, peak);
  const std::string what =
      std::to_string(bookmarks) + " bookmarks, " + std::to_string(perCase) + " a case";
  Report("message of " + what, std::max(first, changed), "ms", Wanted::AtMost, limitMs);
  if (bookmarks == 100'000) Report("memory for " + what, peak, "MiB", Wanted::AtMost, 200);
}

qvsvr::kelvo::Bookmarks ManyBookmarks(int count) {
  constexpr int kApart = 5400;  // seconds between those of a camera
  qvsvr::kelvo::Bookmarks table;
  for (int i = 0; i < count; ++i) {
    qvsvr::kelvo::BookmarkRecord record;
    record.start = static_cast<std::int32_t>(kTreeNow - i / 16 * kApart);
    record.end = record.start + 60;
    record.devices = {TreeCamera(i % 16)};
    table.emplace("case", std::move(record));
  }
  return table;
}

// CPU of a sweep, which asks for every recording whether it is in a bookmark.
double SweepMs(Site& site, const std::vector<std::string>& volumes,
               const qvsvr::kelvo::Bookmarks& table) {
  std::atomic<std::int64_t> cpu{0};
  qvsvr::kelvo::Sweeper sweeper(site.platform,
                                {.sendSizes = [&](const auto&) { cpu = ThreadCpuNs(); },
                                 .cleanupRemoves = [] { return false; },
                                 .isWritten = [](const auto&) { return false; }});
  sweeper.Start({.volumes = volumes, .rules = {}, .bookmarks = table, .globalDays = -100});
  while (cpu == 0 && sweeper.Running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  sweeper.Stop();
  return static_cast<double>(cpu) / 1e6;
}

// CPU of a search for room that finds nothing, since everything lies in a bookmark.
double SearchMs(Site& site, int bookmarks) {
  site.Open();
  std::string text = "<Cases ID='393216'><Case ID='all'>";
  for (int i = 0; i < bookmarks; ++i) {
    const std::int64_t length = 2 * 86400 / std::max(1, bookmarks / 16) + 1;
    const std::int64_t start = kTreeNow - 2 * 86400 + i / 16 * length;
    text += "<Bookmark ID='" + std::to_string(i) + "' Start='" + std::to_string(start) + "' End='" +
            std::to_string(start + length) + "'><Devices ID='1179648'><Device Number='" +
            std::to_string(i % 16) + "'><Video/></Device></Devices></Bookmark>";
  }
  site.storage->ApplyCasesXml(text + "</Case></Cases>", false);
  site.drives.freeGB.clear();
  return CpuMs([&] {
    for (const int before = site.core.notPossible; site.core.notPossible == before;) {
      (void)site.storage->GetRecordVolume(&site.manager, 1);
      site.clock.Pass(1);
    }
  });
}

void MeasureLookups() {
  PlantTree(16, 2);
  Site site;
  SetDrives(site, 2, Room::Plenty);
  site.Open();
  constexpr int kCounts[] = {16, 1600, 100'000};
  std::vector<double> alone[3], sweeps[3], searches[3];
  for (int run = 0; run < kRuns; ++run) {
    for (std::size_t i = 0; i < std::size(kCounts); ++i) {
      const qvsvr::kelvo::Bookmarks table = ManyBookmarks(kCounts[i]);
      alone[i].push_back(SweepMs(site, {}, table));
      sweeps[i].push_back(SweepMs(site, {"a/", "b/"}, table) - alone[i].back());
      searches[i].push_back(SearchMs(site, kCounts[i]));
    }
  }
  for (std::size_t i = 0; i < std::size(kCounts); ++i) {
    std::printf("  %6d bookmarks: %.1f ms for themselves, sweep %.1f ms, search for room %.1f ms\n",
                kCounts[i], Median(alone[i]), Median(sweeps[i]), Median(searches[i]));
  }
  Report("sweep of the tree, 100,000 bookmarks / 16", Median(sweeps[2]) / Median(sweeps[0]), "x",
         Wanted::AtMost, 1.5);
  Report("search for room, 100,000 bookmarks / 16", Median(searches[2]) / Median(searches[0]), "x",
         Wanted::AtMost, 1.5);
}

}  // namespace

void Scale(const std::string&) {
  MeasureCases(1000, 1000, 100);
  MeasureCases(30'000, 30'000, 500);
  MeasureCases(100'000, 10, 1000);
  MeasureLookups();
  MeasureWorkers();
}

}  // namespace bench
