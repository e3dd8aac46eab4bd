#pragma once

#include <cstdint>
#include <map>
#include <set>

#include "media/StreamId.h"

namespace qvsvr::kelvo {

// How long recordings stay: by one rule for all, or by rules of single inputs. A rule keeps a
// recording from being deleted for room, or has it expire; the sign of the days tells which. Part
// of CFileSystem; worker thread only.
struct RetentionRules {
  // Keep (`Type` 1) or expire after (`Type` 2); the values of an Expiration element.
  static constexpr int kExpirationNone = 0;
  static constexpr int kExpirationKeep = 1;
  static constexpr int kExpirationExpire = 2;

  // Global rule: 0 none, above 0 days to keep at least, below 0 days to expire after.
  std::int32_t expirationDays = 0;
  std::uint32_t expirationChanges = 0;  // nothing reads it
  // Wanted age of the oldest content, seconds.
  std::int32_t contentAge = 0;
  std::uint32_t contentAgeChanges = 0;  // nothing reads it
  // Whether cleanup removes what it finds, or only tells.
  bool fsCleanupRemoves = true;
  // Audio of an input with a rule of its own goes to the file of that input's video.
  bool preserveExpirationAudioWithVideo = false;
  std::uint32_t preserveAudioChanges = 0;  // by which the record manager notices
  // Providers that have been configured (kProviderMask). Nothing reads it.
  std::set<std::uint32_t> knownDevices;
  // Days per input, signed as the global rule.
  std::map<qv::kelvo::StreamID, std::int32_t> cameraExpiration;
  // Counts what may have changed how long a recording stays.
  std::uint64_t revision = 0;

  // Types other than the three leave the rule as it is.
  void SetExpiration(int type, std::int32_t days);
  // A negative age is ignored.
  void SetContentAge(std::int32_t seconds);
  void SetPreserveAudio(bool value);

  // `type` below 2 keeps, any other expires.
  void SetCameraExpiration(qv::kelvo::StreamID input, int type, std::int32_t days);
  // Drops what is known of a provider; the bits outside kProviderMask don't count.
  void ForgetDevice(std::uint32_t provider);
  void AddKnownDevice(std::uint32_t provider);
};

}  // namespace qvsvr::kelvo
