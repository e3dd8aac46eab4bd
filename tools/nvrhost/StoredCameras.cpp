#include "nvrhost/StoredCameras.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <map>
#include <stdexcept>
#include <tuple>

#include "nvrhost/RecordingFile.h"

namespace nvrhost {
namespace {

namespace fs = boost::filesystem;

constexpr std::uint32_t kProviderBits = 0x0FFF0000;
constexpr std::uint32_t kAudioChannel = 16;
constexpr std::int64_t kNameSlack = 3600;  // the hour that comes twice
constexpr std::int64_t kFileSeconds = 600;

// The local time that a media file's path tells, since 1970; 0 if it tells none.
std::int64_t TimeOfName(const fs::path& path) {
  const auto hour = path.parent_path(), day = hour.parent_path(), month = day.parent_path();
  std::tm time{};
  const std::string text = month.parent_path().filename().string() + " " +
                           month.filename().string() + " " + day.filename().string() + " " +
                           hour.filename().string() + " " + path.filename().string();
  if (std::sscanf(text.c_str(), "%4d %2d %2d %2d %2d%2d-", &time.tm_year, &time.tm_mon,
                  &time.tm_mday, &time.tm_hour, &time.tm_min, &time.tm_sec) != 6) {
    return 0;
  }
  time.tm_year -= 1900;
  time.tm_mon -= 1;
  time.tm_isdst = -1;
  return mktime(&time);
}

using CameraKey = std::tuple<int, std::uint32_t, int, int>;  // context, provider, device, channel

void AddCamerasOf(const RecordingFile& file, std::map<CameraKey, StoredCamera>& cameras) {
  StoredCamera found;
  found.context = static_cast<int>(file.id >> 28);
  found.provider = file.id & kProviderBits;
  found.device = static_cast<int>((file.id >> 8) & 0xFF);
  for (std::size_t number = 0; number < RecordingFile::kStreams; ++number) {
    const auto& stream = file.streams[number];
    if (stream.codec == 0 || stream.codec > 0x7F) continue;
    found.channel = static_cast<int>(stream.channel & 15);
    const CameraKey key{found.context, found.provider, found.device, found.channel};
    const bool audio = number >= RecordingFile::kFirstAudio;
    auto& camera = cameras.try_emplace(key, found).first->second;
    camera.audio = camera.audio || audio;
    if (!stream.name.empty() && (!audio || camera.name.empty())) camera.name = stream.name;
  }
}

}  // namespace

hostkit::SearchInput StoredCamera::Video() const {
  return {provider, device, context, false, channel, {}};
}

hostkit::SearchInput StoredCamera::Audio() const {
  return {provider, device, context, true, channel, {}};
}

bool StoredCamera::Has(const hostkit::SearchInput& input) const {
  return input.provider == provider && input.device == device && input.context == context &&
         input.number == channel;
}

std::uint32_t StoredCamera::ProviderId(bool ofAudio) const {
  return static_cast<std::uint32_t>(context) << 28 | provider |
         static_cast<std::uint32_t>(device) << 8 | (ofAudio ? kAudioChannel : 0u) |
         static_cast<std::uint32_t>(channel);
}

Stored FindStored(const std::string& drives) {
  return StoredIn(FindRecordings(drives), drives);
}

Stored StoredIn(const std::vector<std::string>& mediaFiles, const std::string& place) {
  std::map<CameraKey, StoredCamera> cameras;
  Stored stored;
  for (const auto& path : mediaFiles) {
    const std::int64_t time = TimeOfName(path);
    if (time == 0) continue;
    AddCamerasOf(ReadRecordingHead(path), cameras);
    if (stored.beginSeconds == 0 || time - kNameSlack < stored.beginSeconds) {
      stored.beginSeconds = time - kNameSlack;
    }
    stored.endSeconds = std::max(stored.endSeconds, time + kNameSlack + kFileSeconds);
  }
  if (cameras.empty()) throw std::runtime_error("no recordings below " + place);
  for (auto& [key, camera] : cameras) {
    if (camera.name.empty()) camera.name = "Input " + std::to_string(stored.cameras.size() + 1);
    stored.cameras.push_back(std::move(camera));
  }
  return stored;
}

std::vector<StoredCamera> ChooseCameras(const Stored& stored,
                                        const std::vector<std::string>& chosen) {
  if (chosen.empty()) return stored.cameras;
  std::vector<StoredCamera> cameras;
  for (const auto& text : chosen) {
    std::size_t number = 0;
    const char* const end = text.data() + text.size();
    const bool isNumber = std::from_chars(text.data(), end, number).ptr == end;
    const auto named = std::find_if(stored.cameras.begin(), stored.cameras.end(),
                                    [&](const auto& camera) { return camera.name == text; });
    if (named != stored.cameras.end()) {
      cameras.push_back(*named);
    } else if (isNumber && number >= 1 && number <= stored.cameras.size()) {
      cameras.push_back(stored.cameras[number - 1]);
    } else {
      throw std::runtime_error("no camera \"" + text + "\"; there are " +
                               std::to_string(stored.cameras.size()));
    }
  }
  return cameras;
}

std::vector<hostkit::SearchInput> InputsOf(const std::vector<StoredCamera>& cameras) {
  std::vector<hostkit::SearchInput> inputs;
  for (const auto& camera : cameras) {
    inputs.push_back(camera.Video());
    if (camera.audio) inputs.push_back(camera.Audio());
  }
  return inputs;
}

}  // namespace nvrhost
