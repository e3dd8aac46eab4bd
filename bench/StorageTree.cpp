#include "bench/StorageTree.h"

#include <array>
#include <boost/filesystem.hpp>
#include <stdexcept>

#include "bench/Measure.h"
#include "media/PSFile.h"
#include "tree/RecordPath.h"

namespace bench {
namespace {

namespace fs = boost::filesystem;
namespace media = qv::kelvo;

constexpr char kModel[] = "model.ps";
constexpr std::uint64_t kPlentyGB = 500;

void MakeModel() {
  media::PSFile file(media::SystemPlatform().mediaFiles);
  std::array<media::PsStreamDescriptor, media::kStreamCount> descriptors;
  descriptors[0].streamType = 130;
  descriptors[0].streamId = 0xE0;
  descriptors[0].channel = 5;
  media::PsFileInfo info;
  info.fileInput[0] = 0xFF;
  const std::array<std::byte, 64> payload{};
  media::PSFrame frame;
  frame.frameType = 1;
  frame.channel = 5;
  frame.payload = payload.data();
  frame.payloadSize = payload.size();
  frame.SetTime((kTreeNow - 60) * 1000);
  if (file.Create(kModel, info, descriptors, 0) != 0 || file.WriteFrame(frame) != 0) {
    throw std::runtime_error("the model recording could not be written");
  }
  file.Close();
}

}  // namespace

int ToldDrives::FixedDrives(std::vector<std::string>& found) {
  found = names;
  return 0;
}

int ToldDrives::SystemDirectory(std::string& path) {
  path = "/usr";
  return 0;
}

int ToldDrives::DeviceNumber(const std::string& path, std::uint64_t& device) {
  device = static_cast<std::uint64_t>(path[0]);
  return 0;
}

std::string ToldDrives::Space(const std::string& path, qv::kelvo::DriveSpace& space) {
  ++looks;
  const std::uint64_t free = freeGB[path];
  if (fullFor > 0 && --fullFor == 0) freeGB = {{"a/", kPlentyGB}, {"b/", kPlentyGB}};
  space = {std::uint64_t{1000} << 30, free << 30, free << 30};
  return {};
}

int CountedListings::List(const std::string& path, std::string_view pattern,
                          qv::kelvo::ListSizes sizes,
                          const std::function<bool(const qv::kelvo::DirectoryEntry&)>& visit) {
  ++lists;
  return media::SystemPlatform().directories.List(path, pattern, sizes, visit);
}

std::uint64_t CountedListings::ChangeStamp(const std::string& path) {
  return media::SystemPlatform().directories.ChangeStamp(path);
}

std::int64_t SetClock::SteadyNs() {
  return media::SystemPlatform().clock.SteadyNs() + passedNs;
}

void SetClock::Pass(std::int64_t seconds) {
  now += seconds * 1000;
  passedNs += seconds * 1'000'000'000;
}

std::uint32_t TreeCamera(int camera) {
  return 0x00120000u | static_cast<std::uint32_t>(camera) << 8;
}

std::string PlantOne(const std::string& drive, std::int64_t time, std::uint32_t id) {
  std::string path = media::MakePath(drive, time * 1000, id, media::CreateDirectories::Yes);
  fs::create_hard_link(kModel, path);
  fs::create_hard_link(std::string(kModel) + "i", path + "i");
  return path;
}

std::int64_t PlantTree(int cameras, int days) {
  for (const char* drive : {"a", "b"}) fs::create_directories(drive);
  if (!fs::exists(kModel)) MakeModel();
  std::int64_t count = 0;
  const std::int64_t begin = kTreeNow - days * std::int64_t{86400};
  for (std::int64_t time = begin; time + 2 * kFileSeconds < kTreeNow; time += kFileSeconds) {
    for (int camera = 0; camera < cameras; ++camera) {
      PlantOne(camera % 2 == 0 ? "a/" : "b/", time + camera % 60, TreeCamera(camera));
      ++count;
    }
  }
  return count;
}

}  // namespace bench
