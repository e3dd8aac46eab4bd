#include "nvrhost/Footage.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <tuple>

#include "kelvo/host_abi.h"
#include "nvrhost/Report.h"

namespace nvrhost {
namespace {

constexpr std::int64_t kContinues = 2;
constexpr std::size_t kTimeLength = 19, kClockAt = 11;  // of "YYYY-MM-DD HH:MM:SS"

// From nothing to the most telling; a column shows the highest that lies in it.
constexpr std::array kMarks{" ", "─", "▒", "█"};

std::size_t MarkOf(unsigned flags) {
  return (flags & KELVO_FLAG_ALARM) != 0 ? 3u : (flags & KELVO_FLAG_MOTION) != 0 ? 2u : 1u;
}

std::string Seconds(std::int64_t time) {
  return TimeText(time * 1000).substr(0, kTimeLength);
}

const char* FlagText(unsigned flags) {
  constexpr std::array kTexts{"", "motion", "alarm", "motion, alarm"};
  return kTexts[((flags & KELVO_FLAG_MOTION) != 0 ? 1u : 0u) +
                ((flags & KELVO_FLAG_ALARM) != 0 ? 2u : 0u)];
}

const char* MediumText(bool audio) {
  return audio ? "audio" : "video";
}

std::string JsonText(const std::string& text) {
  std::string result = "\"";
  for (const char letter : text) {
    if (letter == '"' || letter == '\\') result += '\\';
    if (static_cast<unsigned char>(letter) < 0x20) {
      std::array<char, 8> code{};
      std::snprintf(code.data(), code.size(), "\\u%04x", static_cast<unsigned>(letter));
      result += code.data();
    } else {
      result += letter;
    }
  }
  return result + '"';
}

}  // namespace

std::vector<Stretch> StretchesOf(const hostkit::SearchResults& results,
                                 const std::vector<StoredCamera>& cameras) {
  std::vector<Stretch> all;
  for (const auto& row : results.rows) {
    const auto camera = std::find_if(cameras.begin(), cameras.end(),
                                     [&](const auto& one) { return one.Has(row.input); });
    if (camera == cameras.end()) continue;
    all.push_back({static_cast<std::size_t>(camera - cameras.begin()), row.input.audio, row.start,
                   row.end, row.flags});
  }
  std::sort(all.begin(), all.end(), [](const Stretch& a, const Stretch& b) {
    return std::tie(a.camera, a.audio, a.start, a.end) <
           std::tie(b.camera, b.audio, b.start, b.end);
  });
  std::vector<Stretch> joined;
  for (const auto& one : all) {
    if (!joined.empty()) {
      auto& last = joined.back();
      if (last.camera == one.camera && last.audio == one.audio && last.flags == one.flags &&
          one.start <= last.end + kContinues) {
        last.end = std::max(last.end, one.end);
        continue;
      }
    }
    joined.push_back(one);
  }
  return joined;
}

void PrintStretches(const std::vector<Stretch>& stretches,
                    const std::vector<StoredCamera>& cameras) {
  std::printf("%-16s %-6s %-20s %-20s %8s  %s\n", "camera", "medium", "from", "to", "seconds",
              "flags");
  for (const auto& one : stretches) {
    std::printf("%-16s %-6s %-20s %-20s %8lld  %s\n", cameras[one.camera].name.c_str(),
                MediumText(one.audio), Seconds(one.start).c_str(), Seconds(one.end).c_str(),
                static_cast<long long>(one.end - one.start), FlagText(one.flags));
  }
}

void PrintTimeline(const std::vector<Stretch>& stretches, const std::vector<StoredCamera>& cameras,
                   std::int64_t from, std::int64_t to, std::size_t columns) {
  const auto length = std::max<std::int64_t>(to - from, 1);
  const auto columnOf = [&](std::int64_t time) {
    const auto column = (time - from) * static_cast<std::int64_t>(columns) / length;
    return static_cast<std::size_t>(
        std::clamp<std::int64_t>(column, 0, static_cast<std::int64_t>(columns) - 1));
  };
  const std::string begin = Seconds(from);
  const std::string end = Seconds(to);
  const bool oneDay = begin.compare(0, kClockAt, end, 0, kClockAt) == 0;
  const std::string left = oneDay ? begin.substr(kClockAt) : begin;
  const std::string right = oneDay ? end.substr(kClockAt) : end;
  const auto gap = static_cast<int>(columns > left.size() ? columns - left.size() : 0);
  std::printf("\n%-16s %-6s %s%*s\n", oneDay ? begin.substr(0, kClockAt).c_str() : "", "",
              left.c_str(), gap, right.c_str());
  for (std::size_t camera = 0; camera < cameras.size(); ++camera) {
    for (const bool audio : {false, true}) {
      if (audio && !cameras[camera].audio) continue;
      std::vector<std::size_t> marks(columns, 0);
      for (const auto& one : stretches) {
        if (one.camera != camera || one.audio != audio || one.end < from || one.start > to) {
          continue;
        }
        for (auto column = columnOf(one.start); column <= columnOf(one.end); ++column) {
          marks[column] = std::max(marks[column], MarkOf(one.flags));
        }
      }
      std::printf("%-16s %-6s ", cameras[camera].name.c_str(), MediumText(audio));
      for (const auto mark : marks) std::printf("%s", kMarks[mark]);
      std::printf("\n");
    }
  }
  std::printf("%-16s %-6s %s recorded, %s with motion, %s with alarm\n", "", "", kMarks[1],
              kMarks[2], kMarks[3]);
}

void PrintJson(const std::vector<Stretch>& stretches, const std::vector<StoredCamera>& cameras) {
  std::printf("[");
  const char* separator = "\n";
  for (const auto& one : stretches) {
    std::printf(
        "%s  {\"camera\": %s, \"medium\": \"%s\", \"start\": %lld, \"end\": %lld, "
        "\"motion\": %s, \"alarm\": %s}",
        separator, JsonText(cameras[one.camera].name).c_str(), MediumText(one.audio),
        static_cast<long long>(one.start), static_cast<long long>(one.end),
        (one.flags & KELVO_FLAG_MOTION) != 0 ? "true" : "false",
        (one.flags & KELVO_FLAG_ALARM) != 0 ? "true" : "false");
    separator = ",\n";
  }
  std::printf("\n]\n");
}

}  // namespace nvrhost
