#include <sys/stat.h>

#include <algorithm>

#include "platform/Files.h"
#include "platform/Native.h"
#include "platform/posix/Posix.h"

namespace qv::kelvo {

namespace {

constexpr char kDrivesDirectory[] = "drives";
constexpr char kSystemDirectory[] = "/usr";

// The drives are the directories below `drives` in the process's current directory: an operator
// mounts or links a disk there.
class DrivesOnPosix : public Drives {
 public:
  int FixedDrives(std::vector<std::string>& names) override {
    names.clear();
    std::string place;
    if (const int error = Place(place); error != 0) return error;
    const int error =
        PosixDirectories().List(place, "*", ListSizes::No, [&](const DirectoryEntry& entry) {
          if (entry.isDirectory) names.push_back(place + '/' + std::string(entry.name) + '/');
          return true;
        });
    std::sort(names.begin(), names.end());
    return error == ENOENT ? 0 : error;
  }

  std::string SearchedPlace() override {
    std::string place;
    return Place(place) == 0 ? place : kDrivesDirectory;
  }

  int SystemDirectory(std::string& path) override {
    path = kSystemDirectory;
    return 0;
  }

  int DeviceNumber(const std::string& path, std::uint64_t& device) override {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return errno;
    device = status.st_dev;
    return 0;
  }

  std::string Space(const std::string& path, DriveSpace& space) override {
    return MeasureSpace(path, space);
  }

 private:
  // The path is not resolved further, so that a drive's name is the one its operator chose.
  static int Place(std::string& place) {
    const int error = CurrentDirectory(place);
    if (error == 0) place = (place == "/" ? "" : place) + '/' + kDrivesDirectory;
    return error;
  }
};

}  // namespace

Drives& PosixDrives() {
  static DrivesOnPosix drives;
  return drives;
}

}  // namespace qv::kelvo
