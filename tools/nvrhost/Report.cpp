#include "nvrhost/Report.h"

#include <array>
#include <boost/filesystem.hpp>
#include <cstdio>
#include <ctime>

#include "hostkit/Codecs.h"

namespace nvrhost {
namespace {

bool IsAudio(std::size_t number) {
  return number >= RecordingFile::kFirstAudio;
}

std::string_view CodecOf(std::size_t number, const RecordingFile::Stream& stream) {
  return IsAudio(number) ? hostkit::AudioCodecName(stream.codec)
                         : hostkit::VideoCodecName(stream.codec);
}

const char* FlagText(unsigned flags) {
  const bool motion = (flags & 0x80) != 0, alarm = (flags & 0x40) != 0;
  return motion ? alarm ? ", motion, alarm" : ", motion" : alarm ? ", alarm" : "";
}

void PrintStream(std::size_t number, const RecordingFile::Stream& stream, bool closed) {
  std::string format(CodecOf(number, stream));
  format += ' ';
  if (IsAudio(number)) {
    format.append(std::to_string(stream.sampleRate)).append(" Hz");
  } else {
    format.append(std::to_string(stream.width)).append("x").append(std::to_string(stream.height));
  }
  std::printf("      %-16s %-5s %2zu  %-22s %6llu frames", stream.name.c_str(),
              IsAudio(number) ? "audio" : "video", number, format.c_str(),
              static_cast<unsigned long long>(stream.Total()));
  if (!IsAudio(number)) {
    std::printf(" (I %llu, P %llu, B %llu)", static_cast<unsigned long long>(stream.frames[1]),
                static_cast<unsigned long long>(stream.frames[2]),
                static_cast<unsigned long long>(stream.frames[3]));
  }
  std::printf("\n      %-26s %s to %s", "", TimeText(stream.firstMs).c_str(),
              TimeText(stream.lastMs).c_str() + 11);
  if (closed) {
    std::printf(", %zu clip%s%s", stream.clips, stream.clips == 1 ? "" : "s",
                FlagText(stream.flags));
  }
  std::printf("\n");
}

}  // namespace

std::string SizeText(std::uint64_t bytes) {
  constexpr std::array units{"B", "kB", "MB", "GB", "TB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; value >= 1000 && unit + 1 < units.size(); ++unit) value /= 1000;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
  return text.data();
}

std::string TimeText(std::int64_t utcMs) {
  const auto seconds = static_cast<std::time_t>(utcMs / 1000);
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 64> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(text.data() + length, text.size() - length, ".%03d",
                static_cast<int>(utcMs % 1000));
  return text.data();
}

void PrintTree(const std::vector<RecordingFile>& files, const std::string& base) {
  namespace fs = boost::filesystem;
  std::string directory;
  std::uint64_t frames = 0, bytes = 0;
  for (const auto& file : files) {
    const fs::path path(file.path);
    const auto relative = base.empty() ? path : path.lexically_relative(base);
    if (relative.parent_path() != directory) {
      directory = relative.parent_path().string();
      std::printf("%s/\n", directory.c_str());
    }
    std::printf("   %s  %s, index %s%s%s%s\n", relative.filename().c_str(),
                SizeText(file.mediaBytes).c_str(), SizeText(file.indexBytes).c_str(),
                file.closed || !file.fault.empty() ? "" : ", not closed",
                file.fault.empty() ? "" : ", FAULT: ", file.fault.c_str());
    for (std::size_t number = 0; number < file.streams.size(); ++number) {
      if (file.streams[number].Total() > 0) {
        PrintStream(number, file.streams[number], file.closed);
      }
    }
    frames += file.Total();
    bytes += file.mediaBytes + file.indexBytes;
  }
  std::printf("%zu recording%s, %llu frames, %s\n", files.size(), files.size() == 1 ? "" : "s",
              static_cast<unsigned long long>(frames), SizeText(bytes).c_str());
}

void PrintCsv(const std::vector<RecordingFile>& files) {
  std::printf("path,name,stream,codec,frames,i,p,b,first_ms,last_ms,clips\n");
  for (const auto& file : files) {
    for (std::size_t number = 0; number < file.streams.size(); ++number) {
      const auto& stream = file.streams[number];
      if (stream.Total() == 0) continue;
      std::printf("%s,%s,%zu,%s,%llu,%llu,%llu,%llu,%lld,%lld,%zu\n", file.path.c_str(),
                  stream.name.c_str(), number, CodecOf(number, stream).data(),
                  static_cast<unsigned long long>(stream.Total()),
                  static_cast<unsigned long long>(stream.frames[1]),
                  static_cast<unsigned long long>(stream.frames[2]),
                  static_cast<unsigned long long>(stream.frames[3]),
                  static_cast<long long>(stream.firstMs), static_cast<long long>(stream.lastMs),
                  stream.clips);
    }
  }
}

}  // namespace nvrhost
