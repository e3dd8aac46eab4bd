#include "storage/RetentionRules.h"

#include <algorithm>
#include <limits>

namespace qvsvr::kelvo {
namespace {

// Such that the opposite is a number, too.
std::int32_t Bounded(std::int32_t days) {
  return std::max(days, -std::numeric_limits<std::int32_t>::max());
}

}  // namespace

void RetentionRules::SetExpiration(int type, std::int32_t days) {
  std::int32_t value = 0;
  switch (type) {
    case kExpirationNone:
      break;
    case kExpirationKeep:
      value = Bounded(days);
      break;
    case kExpirationExpire:
      value = -Bounded(days);
      break;
    default:
      return;
  }
  if (value == expirationDays) return;
  expirationDays = value;
  ++expirationChanges;
  ++revision;
}

void RetentionRules::SetContentAge(std::int32_t seconds) {
  if (seconds < 0 || seconds == contentAge) return;
  contentAge = seconds;
  ++contentAgeChanges;
}

void RetentionRules::SetPreserveAudio(bool value) {
  if (value == preserveExpirationAudioWithVideo) return;
  preserveExpirationAudioWithVideo = value;
  ++preserveAudioChanges;
}

void RetentionRules::SetCameraExpiration(qv::kelvo::StreamID input, int type, std::int32_t days) {
  cameraExpiration[input] = type < kExpirationExpire ? Bounded(days) : -Bounded(days);
  ++revision;
}

void RetentionRules::ForgetDevice(std::uint32_t provider) {
  const std::uint32_t id = qv::kelvo::ProviderOf(provider);
  knownDevices.erase(id);
  std::erase_if(cameraExpiration,
                [id](const auto& entry) { return qv::kelvo::ProviderOf(entry.first) == id; });
  ++revision;
}

void RetentionRules::AddKnownDevice(std::uint32_t provider) {
  knownDevices.insert(qv::kelvo::ProviderOf(provider));
}

}  // namespace qvsvr::kelvo
