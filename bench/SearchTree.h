#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/Host.h"
#include "bench/Measure.h"
#include "media/RunTables.h"

namespace bench {

inline constexpr std::int64_t kPlantBegin = 1'750'003'200;  // seconds since 1970, on the hour
inline constexpr std::int64_t kPlantSeconds = 300;          // of one file

// What one file holds: `frames` of each of `channels` inputs, all inputs at once; every 25th stands
// alone.
struct Content {
  int channels = 1;
  int frames = 100;
  std::uint32_t payloadBytes = 64;
  int stepMs = 40;
};

inline constexpr char kDrive[] = "drives/0/";

// Plants one recording of a camera, of which `closed`, unless it is null, is told. Returns its
// path.
std::string PlantFile(int camera, std::int64_t begin, const Content& content,
                      qv::kelvo::RunTables* closed = nullptr);

// The plug-in and one drive with recordings of cameras 0 and up, planted without it. One at a time;
// what it plants goes with it.
class SearchSite {
 public:
  explicit SearchSite(const std::string& module);
  ~SearchSite();

  // Plants `filesEach` of every camera, the first of which begin at `begin`, one behind the other.
  // Returns their paths.
  std::vector<std::string> Plant(int cameras, int filesEach, const Content& content,
                                 std::int64_t begin = kPlantBegin);

  PluginHost host;

 private:
  Drives drives{1};
};

// A request for the first video `channels` of as many cameras. Type 0 lists, 1 plays back.
[[nodiscard]] std::string RequestText(int type, std::int64_t start, std::int64_t end, int cameras,
                                      int channels = 1);

}  // namespace bench
