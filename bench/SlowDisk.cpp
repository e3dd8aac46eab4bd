// A timeline of many recordings on a disk that takes its time to open a file.
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/Scenarios.h"
#include "bench/SearchTree.h"
#include "platform/Platform.h"
#include "search/Search.h"

namespace bench {
namespace {

namespace media = qv::kelvo;

class SlowFiles : public media::MediaFiles {
 public:
  int Open(const std::string& path, media::OpenMode mode,
           std::unique_ptr<media::MediaFile>& file) override {
    std::this_thread::sleep_for(std::chrono::milliseconds(8));
    return real.Open(path, mode, file);
  }
  media::FileStamp StampOf(const std::string& path) override { return real.StampOf(path); }

 private:
  media::MediaFiles& real = media::SystemPlatform().mediaFiles;
};

class OneDrive : public media::FileSystemBase {
 public:
  using FileSystemBase::FileSystemBase;
  void GetVolumes(std::vector<std::string>& list, std::uint32_t,
                  const media::ArchiveFilter*) override {
    list = {kDrive};
  }
};

class QuietCore : public qvsvr::kelvo::ICoreEventer {
 public:
  std::uint32_t SendHostMessage(const KelvoHostRequest& request, KelvoHostReply& reply) override {
    reply.Status = 0;
    if (request.SubCode == KELVO_SUB_SEARCH_RESULT) bytes = request.Length;
    return 0;
  }
  void SendXmlEvent(const std::string&, std::uint32_t) override {}
  void DecrementReference(void*) override {}
  std::uint32_t GetCoreTime(std::int64_t&, std::uint16_t&) override { return 0; }
  [[nodiscard]] bool IsStopping() const override { return false; }

  std::uint32_t bytes = 0;  // of the last result
};

double SecondsFor(int cameras, std::int64_t range, media::RunTables* known) {
  SlowFiles files;
  const media::Platform& system = media::SystemPlatform();
  media::Platform platform{system.clock, system.drives,       system.directories,
                           files,        system.durableFiles, system.diskSync};
  OneDrive drive(platform);
  QuietCore core;
  qvsvr::kelvo::SearchTargetFileSystem target(drive, platform, known);
  const std::int64_t begin = WallNs();
  qvsvr::kelvo::Search(RequestText(0, kPlantBegin, kPlantBegin + range, cameras), 1, target, core);
  const auto lineBytes = std::int64_t{50};
  if (core.bytes < cameras * range / kPlantSeconds * lineBytes) {
    throw std::runtime_error("the timeline has holes");
  }
  return static_cast<double>(WallNs() - begin) / 1e9;
}

}  // namespace

void SlowDisk(const std::string&) {
  constexpr int kCameras = 64, kFilesADay = 288;
  constexpr std::int64_t kHour = 3600, kDay = 24 * kHour;
  const Drives drives(1);
  media::RunTables tables;
  for (int number = 0; number < kFilesADay; ++number) {
    for (int camera = 0; camera < kCameras; ++camera) {
      (void)PlantFile(camera, kPlantBegin + number * kPlantSeconds, {1, 2, 64}, &tables);
    }
  }
  const double known = SecondsFor(kCameras, kDay, &tables);
  // The slack of a range brings some files more.
  const double unknown = SecondsFor(kCameras, kHour, nullptr);
  std::printf("  8 ms an open: a day of %d cameras in %.2f s; of an hour, unknown, in %.1f s\n",
              kCameras, known, unknown);
  Report("timeline of 18,432 known recordings, 8 ms an open", known, " s", Wanted::AtMost, 2);
}

}  // namespace bench
