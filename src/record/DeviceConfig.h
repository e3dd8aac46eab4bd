#pragma once

#include <cstdint>
#include <map>
#include <set>

#include "host/Xml.h"
#include "record/RecordServices.h"
#include "record/StreamSet.h"

namespace qvsvr::kelvo {

// Seconds kept ahead of an alarm, per input key (StreamID of an input; audio inputs add 32).
using PreAlarmTable = std::map<std::uint32_t, std::int32_t>;

// Inputs whose camera is moving, which a schedule takes for motion. The host tells of keys pressed
// and released; three groups of movements may overlap, and a camera stands once none of them goes
// on.
class PtzInputs {
 public:
  // Applies one opcode to an input key; unknown opcodes change nothing.
  void Apply(std::uint32_t inputKey, int opcode);
  // Forgets the inputs of owner `id` that are not in `configured`.
  void Keep(std::uint32_t id, const std::set<std::uint32_t>& configured);
  [[nodiscard]] bool IsMoving(std::uint32_t inputKey) const { return Moving.contains(inputKey); }

 private:
  std::map<std::uint32_t, std::uint8_t> Moving;  // a bit for each of the three groups of opcodes
};

// What configuration messages work on. Borrowed.
struct ConfigTarget {
  RecordServices& Services;
  StreamSet& Streams;
  PreAlarmTable& PreAlarmSeconds;
  PtzInputs& Ptz;
};

// Turns the host's description of its cameras into record streams and slots. Each takes the root of
// a message, and counts it if it has such an element. Elements without what is required are
// skipped, some with a line in the log; the others apply. Worker thread only.
void ApplyDevices(const ConfigTarget& target, const TiXmlElement& root);
void ApplyEvents(const ConfigTarget& target, const TiXmlElement& root);
void ApplyPtz(const ConfigTarget& target, const TiXmlElement& root);
// Archive targets and network drives: Archives children of a full configuration. Ends all files,
// and saves the settings, when a drive came or went.
void ApplyArchives(const ConfigTarget& target, const TiXmlElement& root);
// Disk preparation: Storage children of a full configuration. Ends all files, so that the next ones
// may go to the new drive, and saves the settings when there is one.
void ApplyStorage(const ConfigTarget& target, const TiXmlElement& root);

// Takes over time-lapse settings after a storage message; optionally ends all files first.
void UpdateStreams(const ConfigTarget& target, bool closeFiles, bool reloadLapse);

// Moves audio between parent and channel streams after PreserveExpirationAudioWithVideo changed.
void PlaceAudio(const ConfigTarget& target, bool withVideo);

// Removes the streams of owner `id` that are not in `seenStreams` and brings the alarm registry and
// the moving cameras in line with `seenTuples`.
void RemoveStaleStreams(const ConfigTarget& target, std::uint32_t id,
                        const std::set<std::uint32_t>& seenStreams,
                        const ProviderTuples& seenTuples);

}  // namespace qvsvr::kelvo
