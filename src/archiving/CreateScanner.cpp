#include <cerrno>
#include <climits>
#include <cstdlib>
#include <stdexcept>

#include "archiving/AwsScanner.h"
#include "archiving/CLocalDiskScanner.h"
#include "archiving/IScanner.h"
#include "host/Log.h"

namespace qvArchiving {

namespace {

enum TargetType { kMappedDrive = 1, kMountedShare = 2, kLocalDirectory = 3, kBucket = 5 };

}  // namespace

int ParseDecimal(const std::string& text) {
  errno = 0;
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str()) throw std::invalid_argument("invalid stoi argument");
  if (errno == ERANGE || value < INT_MIN || value > INT_MAX) {
    throw std::out_of_range("stoi argument out of range");
  }
  return static_cast<int>(value);
}

std::string PropertyOr(const ScannerProperties& properties, const char* key) {
  const auto entry = properties.find(key);
  return entry == properties.end() ? std::string() : entry->second;
}

bool IScanner::CheckRequiredProperties(const std::vector<std::string>& keys) const {
  for (const std::string& key : keys) {
    if (properties.contains(key)) continue;
    qvsvr::kelvo::LogPrintf(qvsvr::kelvo::LogError, "Required property '%s' missing", key.c_str());
    return false;
  }
  return true;
}

std::shared_ptr<IScanner> CreateScanner(const ScannerProperties& properties,
                                        const ScannerCallback& callback,
                                        qv::kelvo::Platform& platform) {
  if (const auto type = properties.find(property::kType); type != properties.end()) {
    switch (ParseDecimal(type->second)) {
      case kMappedDrive:
      case kMountedShare:
      case kLocalDirectory:
        return std::make_shared<CLocalDiskScanner>(properties, callback);
      case kBucket:
        return std::make_shared<AwsScanner>(properties, callback, platform);
      default:
        break;
    }
  }
  throw "target interface type not supported";
}

}  // namespace qvArchiving
