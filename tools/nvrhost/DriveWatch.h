#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "hostkit/SimHost.h"

class TiXmlElement;

namespace nvrhost {

// What the plug-in tells of its drives: a table, and alarms as they come and go. Thread-safe.
class DriveWatch {
 public:
  // Takes an event; returns what is worth telling at once: alarms that began or ended, answers to
  // reservations, sizes of bookmarks.
  [[nodiscard]] std::vector<std::string> Take(const hostkit::SimHost::Event& event);

  [[nodiscard]] bool AnyAlarm() const;
  // The table with its heading, and what else the last report told.
  [[nodiscard]] std::vector<std::string> Table() const;

 private:
  struct Drive {
    std::string percent = "?", sizeGB = "?", freeGB = "?", state = "not told";
    bool enabled = true, alarm = false;
  };

  std::map<std::string, Drive> drives;
  std::string oldest;  // seconds since 1970; "-1" if nothing may go
  bool tooYoung = false;
  mutable std::mutex lock;

  void TakeSettings(const TiXmlElement& storage);
  void TakeReport(const TiXmlElement& storage, std::vector<std::string>& news);
  void TakeState(const std::string& name, Drive& drive, const TiXmlElement& told,
                 std::vector<std::string>& news) const;
};

}  // namespace nvrhost
