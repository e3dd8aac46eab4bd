#include "psinfo/Print.h"

#include <array>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include "hostkit/Codecs.h"
#include "media/PSReader.h"
#include "platform/Platform.h"

namespace psinfo {
namespace {

using namespace qv::kelvo;

constexpr unsigned kVideoTypes = 128, kAudioTypes = 144;  // codec + this is the stream type

std::string TimeText(UtcMs time) {
  const CalendarTime utc = ToUtc(time);
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d.%03dZ", utc.year,
                utc.month, utc.day, utc.hour, utc.minute, utc.second, utc.millisecond);
  return text.data();
}

std::string FlagText(unsigned flags) {
  std::string text;
  const auto add = [&](unsigned bit, const char* name) {
    if ((flags & bit) == 0) return;
    text += text.empty() ? "" : " ";
    text += name;
  };
  add(kFlagMotion, "motion");
  add(kFlagAlarm, "alarm");
  add(0x20, "third");
  return text.empty() ? "-" : text;
}

void PrintHead(const std::string& path, PSReader& reader) {
  const char* const index = !reader.HasIndex()      ? "no index: frames from the media file"
                            : reader.WasRecovered() ? "index without counts: records were counted"
                                                    : "closed index";
  std::printf("%s\n  %s, %u frames", path.c_str(), index, reader.GetFrameCount(kWholeFile));
  PackedTime first, last;
  if (reader.GetFirstLast(kWholeFile, first, last) == kPsOk) {
    std::printf(", %s to %s", TimeText(Unpack(first)).c_str(), TimeText(Unpack(last)).c_str());
  }
  PsFileInfo info;
  if (reader.GetFileInfo(info) == kPsOk) {
    std::printf("\n  input %02X, level %u%s%s\n", info.fileInput[0], info.level,
                info.fileName.empty() ? "" : ", name ", info.fileName.c_str());
  } else {
    std::printf("\n  no stream map\n");
  }
}

void PrintFormat(unsigned stream, const PsStreamDescriptor& descriptor) {
  std::array<char, 64> text{};
  if (stream < kVideoStreams) {
    std::snprintf(text.data(), text.size(), "%s %ux%u",
                  hostkit::VideoCodecName((descriptor.streamType - kVideoTypes) & 0xFF).data(),
                  descriptor.width16 * 16u, descriptor.height16 * 16u);
  } else {
    std::snprintf(text.data(), text.size(), "%s %u Hz",
                  hostkit::AudioCodecName((descriptor.streamType - kAudioTypes) & 0xFF).data(),
                  descriptor.sampleRate);
  }
  std::printf("  %-22s %s", text.data(), descriptor.name.c_str());
}

void PrintStreams(PSReader& reader) {
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    const auto number = static_cast<std::uint16_t>(stream);
    const std::uint32_t frames = reader.GetFrameCount(number);
    if (frames == 0) continue;
    std::printf("  stream %2u %s %7u frames", stream, stream < kVideoStreams ? "video" : "audio",
                frames);
    PSReadFrame frame;
    frame.stream = number;
    if (reader.GetFrame(frame) == kPsOk) {
      std::printf("  channel %u encoder %u", frame.channel, frame.encoder);
    }
    PsStreamDescriptor descriptor;
    if (reader.GetStreamInfo(stream, descriptor) == kPsOk) PrintFormat(stream, descriptor);
    PackedTime first, last;
    if (reader.GetFirstLast(number, first, last) == kPsOk) {
      std::printf("\n            %s to %s", TimeText(Unpack(first)).c_str(),
                  TimeText(Unpack(last)).c_str());
    }
    std::printf("\n");
  }
}

void PrintRuns(PSReader& reader) {
  for (std::uint32_t number = 0; number < reader.GetRunCount(); ++number) {
    PSRun run;
    if (const int result = reader.GetRun(number, run); result != kPsOk) {
      std::printf("  run %4u: can't be read (%d)\n", number, result);
      continue;
    }
    std::printf("  run %4u  stream %2u  %s to %s  %s\n", number, run.stream,
                TimeText(Unpack(run.first)).c_str(), TimeText(Unpack(run.last)).c_str(),
                FlagText(run.flags).c_str());
  }
}

void PrintFrames(PSReader& reader) {
  std::vector<std::byte> packet(kMaxFrameSize);
  std::array<std::byte, kMaxUserData> userData{};
  const std::uint32_t count = reader.GetFrameCount(kWholeFile);
  for (std::uint32_t number = 0; number < count; ++number) {
    PSReadFrame frame;
    frame.index = number;
    frame.packet = packet;
    frame.userData = userData;
    const int result = reader.GetFrame(frame);
    std::printf("  frame %6u at %10llu  stream %2u  %c  %7u bytes  %s  group %u  meta %zu  %s",
                number, static_cast<unsigned long long>(frame.fileOffset), frame.stream,
                "AIPB"[frame.frameType & kFrameTypeMask], frame.size,
                TimeText(frame.Time()).c_str(), frame.groupFrame, frame.userDataSize,
                FlagText(frame.flags).c_str());
    if (result != kPsOk) std::printf("  can't be read (%d)", result);
    std::printf("\n");
  }
}

}  // namespace

void PrintRecording(const std::string& mediaPath, bool frames) {
  PSReader reader(SystemPlatform().mediaFiles);
  if (const int result = reader.Open(mediaPath); result != kPsOk) {
    throw std::runtime_error(mediaPath + " can't be opened (" + std::to_string(result) +
                             "); psinfo check says more");
  }
  PrintHead(mediaPath, reader);
  PrintStreams(reader);
  PrintRuns(reader);
  if (frames) PrintFrames(reader);
}

}  // namespace psinfo
