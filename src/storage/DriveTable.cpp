#include "storage/DriveTable.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::int32_t kSystemReservePercent = 10;

}  // namespace

void DriveTable::Fill(const std::vector<std::string>& names, const std::string& systemDirectory) {
  drives.clear();
  for (const std::string& name : names) drives.try_emplace(name);
  for (auto& [name, record] : drives) {
    if (systemDirectory.find(name) == std::string::npos) continue;
    record.reservePercent = kSystemReservePercent;
    record.system = true;
    record.disabled = drives.size() > 1;
  }
}

}  // namespace qvsvr::kelvo
