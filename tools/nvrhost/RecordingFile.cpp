#include "nvrhost/RecordingFile.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <charconv>
#include <ctime>
#include <fstream>
#include <span>

namespace nvrhost {
namespace {

namespace fs = boost::filesystem;
using Bytes = std::span<const unsigned char>;

// The index: a head, a record for each stream, then the frames and the clips.
constexpr std::size_t kHeadSize = 64, kRecordSize = 32, kClipSize = 16;
constexpr std::size_t kFrames = kHeadSize + RecordingFile::kStreams * kRecordSize;
// The media file: the stream map behind the pack header, an entry for each stream in it.
constexpr std::size_t kMapEntries = 16 + 106, kMapEntrySize = 58, kMapEnd = 1978;
constexpr std::size_t kNameOffset = 26, kNameSize = 32;

std::uint32_t Little16(Bytes bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at] | bytes[at + 1] << 8);
}
std::uint32_t Little32(Bytes bytes, std::size_t at) {
  return Little16(bytes, at) | Little16(bytes, at + 2) << 16;
}

std::vector<unsigned char> ReadBytes(const std::string& path, std::size_t most) {
  std::ifstream file(path, std::ios::binary);
  std::vector<unsigned char> bytes;
  std::array<char, 65536> block{};
  while (file && bytes.size() < most) {
    file.read(block.data(),
              static_cast<std::streamsize>(std::min(block.size(), most - bytes.size())));
    bytes.insert(bytes.end(), block.begin(), block.begin() + file.gcount());
  }
  return bytes;
}

std::int64_t UtcMs(std::uint32_t packedDate, std::uint32_t msOfDay) {
  std::tm date{};
  date.tm_year = static_cast<int>(packedDate >> 9) + 100;
  date.tm_mon = static_cast<int>((packedDate >> 5) & 15) - 1;
  date.tm_mday = static_cast<int>(packedDate & 31);
  return static_cast<std::int64_t>(timegm(&date)) * 1000 + msOfDay;
}

void ReadStreamMap(Bytes bytes, RecordingFile& file) {
  if (bytes.size() < kMapEnd || bytes[3] != 0xBA) {
    file.fault = "no stream map";
    return;
  }
  for (std::size_t number = 0; number < RecordingFile::kStreams; ++number) {
    const auto entry = bytes.subspan(kMapEntries + number * kMapEntrySize, kMapEntrySize);
    auto& stream = file.streams[number];
    if (number < RecordingFile::kFirstAudio) {
      stream.codec = (entry[0] - 128u) & 0xFF;
      stream.width = entry[4] * 16;
      stream.height = entry[5] * 16;
    } else {
      stream.codec = (entry[0] - 144u) & 0xFF;
      stream.sampleRate = entry[6] << 8 | (entry[7] & ~8);
    }
    const auto name = entry.subspan(kNameOffset, kNameSize);
    stream.name.assign(name.begin(), std::find(name.begin(), name.end(), 0));
  }
}

void ReadFrames(Bytes bytes, std::size_t count, RecordingFile& file) {
  for (std::size_t index = 0; index < count; ++index) {
    const auto record = bytes.subspan(kFrames + index * kRecordSize, kRecordSize);
    const bool written = Little32(record, 16) != 0 || Little32(record, 20) != 0;
    if (record[0] >= RecordingFile::kStreams || !written) {
      if (file.closed) file.fault = "frame " + std::to_string(index) + " of the index is invalid";
      return;
    }
    auto& stream = file.streams[record[0]];
    const std::int64_t time = UtcMs(Little16(record, 6), Little32(record, 8));
    if (stream.Total() == 0) stream.firstMs = time;
    stream.lastMs = time;
    ++stream.frames[record[2] & 3];
  }
}

void ReadStreamSetup(Bytes bytes, RecordingFile& file) {
  for (std::size_t number = 0; number < RecordingFile::kStreams; ++number) {
    const auto record = bytes.subspan(kHeadSize + number * kRecordSize, kRecordSize);
    auto& stream = file.streams[number];
    stream.channel = record[24];
    stream.flags = record[25];
    stream.encoder = record[26];
  }
}

void ReadIndex(Bytes bytes, RecordingFile& file) {
  if (bytes.size() < kFrames || Little32(bytes, 0) == 0 || Little32(bytes, 4) != kHeadSize ||
      Little32(bytes, 8) != kRecordSize || Little32(bytes, 12) != kRecordSize) {
    file.fault = "no valid index";
    return;
  }
  const std::size_t room = (bytes.size() - kFrames) / kRecordSize;
  const std::size_t frames = Little32(bytes, 20);
  file.closed = frames != 0;
  if (frames > room) file.fault = "the index is shorter than its head says";
  ReadFrames(bytes, file.closed ? std::min(frames, room) : room, file);

  ReadStreamSetup(bytes, file);
  for (std::size_t number = 0; number < RecordingFile::kStreams; ++number) {
    const auto record = bytes.subspan(kHeadSize + number * kRecordSize, kRecordSize);
    const auto& stream = file.streams[number];
    if (file.closed && Little32(record, 0) != stream.Total()) {
      file.fault = "stream " + std::to_string(number) + " counts " +
                   std::to_string(Little32(record, 0)) + " frames but has " +
                   std::to_string(stream.Total());
    }
  }

  const std::size_t clipsAt = kFrames + frames * kRecordSize;
  for (std::size_t clip = 0; file.closed && clip < Little32(bytes, 40); ++clip) {
    const std::size_t at = clipsAt + clip * kClipSize;
    if (at + kClipSize > bytes.size()) {
      file.fault = "the index ends before its last clip";
      break;
    }
    if (bytes[at] < RecordingFile::kStreams) ++file.streams[bytes[at]].clips;
  }
}

std::uint32_t IdOf(const std::string& name) {
  std::uint32_t id = 0;
  const auto dash = name.find('-');
  if (dash != std::string::npos) {
    const char* const begin = name.c_str() + dash + 1;
    std::from_chars(begin, name.c_str() + name.size(), id, 16);
  }
  return id;
}

}  // namespace

std::uint64_t RecordingFile::Total() const {
  std::uint64_t total = 0;
  for (const auto& stream : streams) total += stream.Total();
  return total;
}

RecordingFile ReadRecording(const std::string& mediaPath) {
  RecordingFile file;
  file.path = mediaPath;
  // Of "MMSS-CPPPDDIIa" only the eight digits make the id.
  file.id = IdOf(fs::path(mediaPath).filename().string().substr(0, 13));
  boost::system::error_code error;
  file.mediaBytes = fs::file_size(mediaPath, error);
  if (error) {
    file.mediaBytes = 0;
    file.fault = error.message();
    return file;
  }
  ReadStreamMap(ReadBytes(mediaPath, kMapEnd), file);
  const std::string indexPath = mediaPath + "i";
  const auto index = ReadBytes(indexPath, SIZE_MAX);
  file.indexBytes = index.size();
  ReadIndex(index, file);
  return file;
}

RecordingFile ReadRecordingHead(const std::string& mediaPath) {
  RecordingFile file;
  file.path = mediaPath;
  file.id = IdOf(fs::path(mediaPath).filename().string().substr(0, 13));
  ReadStreamMap(ReadBytes(mediaPath, kMapEnd), file);
  const auto index = ReadBytes(mediaPath + "i", kFrames);
  if (index.size() == kFrames) ReadStreamSetup(index, file);
  return file;
}

std::vector<std::string> FindRecordings(const std::string& directory) {
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(
           directory, fs::directory_options::follow_directory_symlink |
                          fs::directory_options::skip_permission_denied)) {
    if (entry.path().extension() == ".ps" && fs::is_regular_file(entry.status())) {
      paths.push_back(entry.path().string());
    }
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

}  // namespace nvrhost
