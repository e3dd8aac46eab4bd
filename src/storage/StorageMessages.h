#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "host/Xml.h"
#include "storage/DriveTable.h"
#include "storage/RetentionRules.h"
#include "storage/Schedule.h"

namespace qvsvr::kelvo {

// What Storage elements change. Borrowed.
struct StorageTables {
  DriveTable& driveTable;
  RetentionRules& retention;
  TimeLapseTable& lapse;
};

// What the settings on disk are made of. Borrowed.
struct SavedTables {
  const DriveTable& driveTable;
  const RetentionRules& retention;
  const TimeLapseTable& lapse;
};

// Applies one Storage element. Unreadable attributes leave their setting as it is. For each drive
// that isn't in the table a Drive element goes to `reply`, stamped with `nowSeconds`. Returns
// whether a drive of the table was named.
bool ApplyStorageElement(const StorageTables& tables, const TiXmlElement& storage,
                         std::int64_t nowSeconds, TiXmlElement& reply);

// The Drive element that tells of a drive which isn't in the table.
[[nodiscard]] TiXmlElement DriveNotFound(const std::string& name, bool alarm,
                                         std::int64_t nowSeconds);

// Whether the element's ID reads as `moduleId`.
[[nodiscard]] bool HasModuleId(const TiXmlElement& element, std::uint32_t moduleId);

// Names of the drives that a disk-preparation element offers.
[[nodiscard]] std::set<std::string> PreparedDrives(const TiXmlElement& storage);

}  // namespace qvsvr::kelvo
