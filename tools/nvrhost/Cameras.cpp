#include "nvrhost/Cameras.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "hostkit/Codecs.h"
#include "nvrhost/EncodedLoop.h"
#include "nvrhost/FileSource.h"
#include "nvrhost/Multiplex.h"

namespace nvrhost {
namespace {

constexpr std::size_t kMostFileBytes = std::size_t{1} << 30;

std::string NameOf(int camera) {
  return "Camera " + std::to_string(camera + 1);
}

int VideoCodecOf(const std::string& name) {
  if (name == "h265") return hostkit::kH265;
  if (name == "mpeg2") return hostkit::kMpeg2;
  if (name == "mjpeg") return hostkit::kMjpeg;
  return hostkit::kH264;
}

template <typename T>
const T& Round(const std::vector<T>& values, int index) {
  return values[static_cast<std::size_t>(index) % values.size()];
}

std::shared_ptr<const Clip> EncodeClip(const RecordOptions& options,
                                       const std::vector<std::string>& codecs, int camera) {
  VideoSettings settings;
  settings.codec = VideoCodecOf(Round(codecs, camera));
  settings.width = options.width;
  settings.height = options.height;
  settings.fps = options.fps;
  settings.group = options.group;
  settings.bFrames = options.bFrames;
  settings.kilobits = options.kilobits;
  settings.seconds = std::min(options.loopSeconds, options.seconds);
  settings.pattern = camera;
  settings.label = NameOf(camera);
  auto clip = std::make_shared<Clip>();
  clip->video = EncodeVideo(settings);
  const std::string& audio = Round(options.audio, camera);
  if (audio != "none") {
    constexpr int kLowestHz = 220, kStepHz = 55, kTones = 12;
    clip->audio = EncodeAudio(audio == "aac" ? hostkit::kAac : hostkit::kG711Ulaw, settings.seconds,
                              kLowestHz + camera % kTones * kStepHz);
  }
  return clip;
}

std::vector<std::shared_ptr<const Clip>> EncodeClips(const RecordOptions& options,
                                                     Console& console) {
  auto codecs = options.codecs;
  if (std::find(codecs.begin(), codecs.end(), "mixed") != codecs.end()) {
    codecs = {"h264", "h265", "mpeg2", "mjpeg"};
  }
  const auto begin = std::chrono::steady_clock::now();
  const int distinct = std::min(options.cameras, options.distinct);
  std::vector<std::shared_ptr<const Clip>> clips;
  for (int camera = 0; camera < distinct; ++camera) {
    console.Progress(
        "encoding picture " + std::to_string(camera + 1) + " of " + std::to_string(distinct),
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    clips.push_back(EncodeClip(options, codecs, camera));
  }
  console.EndProgress();
  return clips;
}

std::shared_ptr<const Clip> LoadClip(const RecordOptions& options, Console& console) {
  const bool withAudio = std::any_of(options.audio.begin(), options.audio.end(),
                                     [](const std::string& name) { return name != "none"; });
  auto loaded = LoadFile(options.source, withAudio, options.seconds, kMostFileBytes);
  if (!loaded.notice.empty()) console.Line(options.source + ": " + loaded.notice);
  return std::make_shared<Clip>(std::move(loaded.clip));
}

hostkit::CameraConfig ConfigOf(const RecordOptions& options, int index, const Clip& clip) {
  hostkit::CameraConfig config;
  config.device = index;
  config.name = NameOf(index);
  config.standard = clip.video.codec;
  config.width = clip.video.width;
  config.height = clip.video.height;
  config.audio = !clip.audio.Empty();
  config.audioStandard = clip.audio.codec;
  config.sampleRate = clip.audio.sampleRate;
  config.bufSizeSamples = clip.audio.samplesPerFrame;
  config.preMotionMs = options.preMotionMs;
  config.postMotionMs = options.postMotionMs;
  config.schedule.clear();
  constexpr int kLastHourOfWeek = 167;
  if (options.record != "none") {
    const int record = options.record == "always" ? 2 : options.record == "motion" ? 1 : 0;
    config.schedule.push_back({0, kLastHourOfWeek, record});
  }
  return config;
}

}  // namespace

CameraSet MakeCameras(const RecordOptions& options, Console& console) {
  const auto clips = options.source == "test"
                         ? EncodeClips(options, console)
                         : std::vector<std::shared_ptr<const Clip>>{LoadClip(options, console)};
  CameraSet set;
  for (int index = 0; index < options.cameras; ++index) {
    const auto& clip = Round(clips, index);
    const auto config = ConfigOf(options, index, *clip);
    Camera camera;
    camera.name = config.name;
    camera.clip = clip;
    camera.videoProvider =
        MultiplexProvider(hostkit::VideoProvider(config), options.channelsPerDevice);
    camera.audioProvider =
        MultiplexProvider(hostkit::AudioProvider(config), options.channelsPerDevice);
    const auto frameUs =
        clip->video.durationUs / static_cast<std::int64_t>(clip->video.frames.size());
    camera.offsetUs = frameUs * index / options.cameras;
    set.cameras.push_back(std::move(camera));
    set.configs.push_back(config);
  }
  return set;
}

}  // namespace nvrhost
