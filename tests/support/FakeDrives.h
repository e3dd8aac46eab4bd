#pragma once

#include <cerrno>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Drives.h"

namespace qv::kelvo {

struct FakeDrive {
  std::string name;  // ends in a separator
  DriveSpace space{std::uint64_t{1} << 40, std::uint64_t{900} << 30, std::uint64_t{900} << 30};
  std::uint64_t device = 0;
  int deviceError = 0;
};

// Drives by table. A path belongs to the drive with the longest name that it begins with. Any
// thread.
class FakeDrives : public Drives {
 public:
  struct Table {
    std::vector<FakeDrive> drives;
    int drivesError = 0;  // FixedDrives tells the drives all the same
    int systemError = 0;
    std::string system = "/usr";
  };

  // Adds a drive with plenty of room and a device number of its own.
  void Add(const std::string& name) {
    Change([&](Table& held) {
      FakeDrive drive;
      drive.name = name;
      drive.device = held.drives.size() + 1;
      held.drives.push_back(drive);
    });
  }
  void SetSpace(const std::string& name, const DriveSpace& space) {
    ChangeDrive(name, [&](FakeDrive& drive) { drive.space = space; });
  }
  // Does nothing if there is no such drive.
  void ChangeDrive(const std::string& name, const std::function<void(FakeDrive&)>& change) {
    Change([&](Table& held) {
      for (FakeDrive& drive : held.drives) {
        if (drive.name == name) change(drive);
      }
    });
  }
  void Change(const std::function<void(Table&)>& change) {
    const std::lock_guard lock(mutex);
    change(table);
  }

  int FixedDrives(std::vector<std::string>& names) override {
    const std::lock_guard lock(mutex);
    names.clear();
    for (const FakeDrive& drive : table.drives) names.push_back(drive.name);
    return table.drivesError;
  }

  std::string SearchedPlace() override { return "/nowhere/drives"; }

  int SystemDirectory(std::string& path) override {
    const std::lock_guard lock(mutex);
    path = table.systemError == 0 ? table.system : "";
    return table.systemError;
  }

  int DeviceNumber(const std::string& path, std::uint64_t& device) override {
    const std::lock_guard lock(mutex);
    const FakeDrive* drive = Find(path);
    if (drive == nullptr) return ENOENT;
    if (drive->deviceError == 0) device = drive->device;
    return drive->deviceError;
  }

  std::string Space(const std::string& path, DriveSpace& space) override {
    const std::lock_guard lock(mutex);
    const FakeDrive* drive = Find(path);
    if (drive != nullptr) space = drive->space;
    return drive != nullptr ? "" : "No such file or directory";
  }

 private:
  const FakeDrive* Find(const std::string& path) const {
    const FakeDrive* best = nullptr;
    for (const FakeDrive& drive : table.drives) {
      const bool holds = path.starts_with(drive.name) || path + '/' == drive.name;
      if (holds && (best == nullptr || drive.name.size() > best->name.size())) best = &drive;
    }
    return best;
  }

  std::mutex mutex;
  Table table;
};

}  // namespace qv::kelvo
