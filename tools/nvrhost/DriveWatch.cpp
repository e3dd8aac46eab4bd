#include "nvrhost/DriveWatch.h"

#include <tinyxml.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace nvrhost {
namespace {

std::string Text(const TiXmlElement& element, const char* attribute) {
  const char* const value = element.Attribute(attribute);
  return value == nullptr ? "" : value;
}

void ReadInto(std::string& text, const TiXmlElement& element, const char* attribute) {
  if (const char* value = element.Attribute(attribute); value != nullptr) text = value;
}

void ForEach(const TiXmlElement& parent, const char* name, const auto& visit) {
  for (const auto* child = parent.FirstChildElement(name); child != nullptr;
       child = child->NextSiblingElement(name)) {
    visit(*child);
  }
}

std::string LocalTime(const std::string& seconds) {
  const std::time_t time = std::atoll(seconds.c_str());
  std::tm local{};
  localtime_r(&time, &local);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  return text.data();
}

std::string ReservationNews(const TiXmlElement& told) {
  const std::string drive = Text(told, "OutDir");
  return "reservation " + Text(told, "GUID") + ": " +
         (drive.empty() ? "no drive can have so much"
                        : Text(told, "ReserveGB") + " GB on " + drive);
}

}  // namespace

std::vector<std::string> DriveWatch::Take(const hostkit::SimHost::Event& event) {
  std::vector<std::string> news;
  const bool ofBookmarks = event.text.find("<Cases") != std::string::npos;
  if (!ofBookmarks && event.text.find("<Storage") == std::string::npos) return news;
  TiXmlDocument document;
  document.Parse(event.text.c_str(), nullptr, TIXML_ENCODING_UTF8);
  const auto* const root = document.RootElement();
  if (root == nullptr) return news;
  const std::lock_guard guard(lock);
  ForEach(*root, "Storage", [&](const TiXmlElement& storage) {
    event.eventClass == KELVO_CLASS_BROADCAST ? TakeSettings(storage) : TakeReport(storage, news);
  });
  ForEach(*root, "Cases", [&](const TiXmlElement& cases) {
    ForEach(cases, "Case", [&](const TiXmlElement& of) {
      ForEach(of, "Bookmark", [&](const TiXmlElement& bookmark) {
        news.push_back("bookmark " + Text(bookmark, "ID") + " of case " + Text(of, "ID") +
                       " holds " + Text(bookmark, "SizeKB") + " KB");
      });
    });
  });
  return news;
}

void DriveWatch::TakeSettings(const TiXmlElement& storage) {
  ForEach(storage, "Drive", [this](const TiXmlElement& told) {
    Drive& drive = drives[Text(told, "Name")];
    ReadInto(drive.percent, told, "Percent");
    drive.enabled = Text(told, "Enabled") != "0";
  });
}

void DriveWatch::TakeReport(const TiXmlElement& storage, std::vector<std::string>& news) {
  ReadInto(oldest, storage, "Time");
  if (const auto age = Text(storage, "ContentAge"); !age.empty() && tooYoung != (age == "1")) {
    tooYoung = age == "1";
    news.push_back(tooYoung ? "ALARM: recordings went for room before they reached the wanted age"
                            : "the recordings reach back far enough again");
  }
  ForEach(storage, "Reservation",
          [&](const TiXmlElement& told) { news.push_back(ReservationNews(told)); });
  ForEach(storage, "Drive", [&](const TiXmlElement& told) {
    const auto name = Text(told, "Name");
    Drive& drive = drives[name];
    ReadInto(drive.sizeGB, told, "SizeGB");
    ReadInto(drive.freeGB, told, "FreeGB");
    TakeState(name, drive, told, news);
  });
}

void DriveWatch::TakeState(const std::string& name, Drive& drive, const TiXmlElement& told,
                           std::vector<std::string>& news) const {
  const auto alarm = Text(told, "Alarm");
  if (alarm.empty()) return;  // as told before
  const auto message = Text(told, "Message");
  const bool isAlarm = alarm == "1";
  if (isAlarm || drive.alarm) {
    news.push_back((isAlarm ? "ALARM: drive " : "alarm over: drive ") + name + ": " + message);
  }
  drive.alarm = isAlarm;
  drive.state = message;
}

bool DriveWatch::AnyAlarm() const {
  const std::lock_guard guard(lock);
  return tooYoung ||
         std::ranges::any_of(drives, [](const auto& entry) { return entry.second.alarm; });
}

std::vector<std::string> DriveWatch::Table() const {
  const std::lock_guard guard(lock);
  std::size_t width = 5;
  for (const auto& [name, drive] : drives) width = std::max(width, name.size());
  std::vector<std::string> lines;
  const auto add = [&](const std::string& name, const char* use, const char* size, const char* free,
                       const std::string& state) {
    std::array<char, 64> columns{};
    std::snprintf(columns.data(), columns.size(), "  %5s  %9s  %9s  ", use, size, free);
    lines.push_back(name + std::string(width - name.size(), ' ') + columns.data() + state);
  };
  add("drive", "use %", "size GB", "free GB", "state");
  for (const auto& [name, drive] : drives) {
    add(name, drive.percent.c_str(), drive.sizeGB.c_str(), drive.freeGB.c_str(),
        drive.enabled || drive.state == "Disabled" ? drive.state : drive.state + " (disabled)");
  }
  if (!oldest.empty()) {
    lines.push_back("oldest recording that may go: " +
                    (oldest == "-1" ? "none" : LocalTime(oldest)));
  }
  return lines;
}

}  // namespace nvrhost
