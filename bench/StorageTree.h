#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace bench {

inline constexpr std::int64_t kTreeNow = 1'750'000'000;  // seconds since 1970
inline constexpr int kTreeCameras = 64;
inline constexpr int kTreeDays = 30;
inline constexpr std::int64_t kFileSeconds = 300;

// Drives, "a/" and "b/" unless told otherwise, in the current directory with free space as told,
// whatever lies on them.
class ToldDrives : public qv::kelvo::Drives {
 public:
  int FixedDrives(std::vector<std::string>& found) override;
  std::string SearchedPlace() override { return "."; }
  int SystemDirectory(std::string& path) override;
  int DeviceNumber(const std::string& path, std::uint64_t& device) override;
  std::string Space(const std::string& path, qv::kelvo::DriveSpace& space) override;

  std::vector<std::string> names{"a/", "b/"};
  std::map<std::string, std::uint64_t> freeGB;
  std::int64_t looks = 0;  // questions about a drive's space
  // The next so many questions about a drive's space are answered with nothing free, and those
  // behind them with plenty: as if that many deletions were needed.
  int fullFor = 0;
};

// The system's listings, counted.
class CountedListings : public qv::kelvo::Directories {
 public:
  int List(const std::string& path, std::string_view pattern, qv::kelvo::ListSizes sizes,
           const std::function<bool(const qv::kelvo::DirectoryEntry&)>& visit) override;
  std::uint64_t ChangeStamp(const std::string& path) override;
  std::int64_t lists = 0;
};

class SetClock : public qv::kelvo::Clock {
 public:
  qv::kelvo::UtcMs NowMs() override { return now; }
  std::int64_t SteadyNs() override;
  void Pause(int) override {}
  // Wall and monotonic time, both.
  void Pass(std::int64_t seconds);

 private:
  qv::kelvo::UtcMs now = kTreeNow * 1000;
  std::int64_t passedNs = 0;
};

// Plants recordings of `cameras` over `days` before kTreeNow on both drives, alternating by the
// camera: names and heads are real, all content is one recording's, linked. Their first stream is
// input 5 and ended a minute before kTreeNow. Returns how many.
std::int64_t PlantTree(int cameras, int days);

// The id of a camera's files.
[[nodiscard]] std::uint32_t TreeCamera(int camera);

// Plants one; returns its path.
std::string PlantOne(const std::string& drive, std::int64_t time, std::uint32_t id);

}  // namespace bench
