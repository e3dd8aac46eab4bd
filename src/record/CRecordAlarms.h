#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "host/ICoreEventer.h"
#include "host/Xml.h"

namespace qvsvr::kelvo {

struct ConfigTarget;

// Names one configured channel, by the id that its frames carry and by what the host's own messages
// call it.
struct SProviderTuple {
  std::int32_t Provider = 0;  // the channel's provider id, as frames have it
  std::uint32_t Id = 0;       // ID of its Devices element
  std::int32_t Device = 0;
  std::int32_t Input = 0;  // within the device
  std::int32_t Context = 0;

  virtual ~SProviderTuple() = default;
  // Ordered by the fields in order, each as a signed number.
  friend bool operator<(const SProviderTuple& a, const SProviderTuple& b);
};
using ProviderTuples = std::set<SProviderTuple>;

// Tells the host, by RecordIdle events, whether each configured channel is being recorded: once
// when it begins and once when its file ends, so that the host knows what reaches the disk,
// whatever schedules say. A channel is known from its configuration on, by its provider id. Owned
// by CRecordMgr; worker thread only.
class CRecordAlarms {
 public:
  explicit CRecordAlarms(ICoreEventer& core) : Core(core) {}
  virtual ~CRecordAlarms() = default;

  // Adds the channels that aren't known yet; each announces itself as idle.
  void AddProviders(const ProviderTuples& seen);

  // Removes every channel of owner `id`, and every channel of another owner that isn't in `seen`.
  // An idle one is told as recording before it goes.
  void RemoveProviders(std::uint32_t id, const ProviderTuples& seen);

  // A frame of `provider` reached the file `path` of stream `streamId` (never 0).
  void NoteWrite(std::uint32_t provider, std::uint32_t streamId, std::int64_t seconds,
                 std::uint16_t milliseconds, const std::string& path);

  // The file of `streamId` ended; 0 stands for all streams.
  void NoteFileEnd(std::uint32_t streamId, const std::string& path);

 private:
  struct SAlarm : SProviderTuple {
    std::uint32_t ActiveStream = 0;  // the stream that records this channel, 0 while idle
    std::int64_t Time = 0;           // of the last frame written, 0 before the first
    std::uint16_t Milliseconds = 0;
  };
  void SendRecordIdle(const SAlarm& alarm, const std::string& path);

  ICoreEventer& Core;
  std::map<std::int32_t, SAlarm> Alarms;
};

// Applies the alarms of an action message, its Devices children, to the streams: what an alarm's
// input has pending, and what comes until the alarm's end, is kept. Worker thread only.
void ApplyActionDevices(const ConfigTarget& target, const TiXmlElement& root);

}  // namespace qvsvr::kelvo
