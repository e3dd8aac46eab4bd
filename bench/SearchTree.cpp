#include "bench/SearchTree.h"

#include <array>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "media/PSFile.h"
#include "platform/Platform.h"
#include "tree/RecordPath.h"

namespace bench {
namespace {

namespace media = qv::kelvo;

constexpr std::uint32_t kProvider = 0x00110000;  // ID of the Devices element
constexpr int kGroupFrames = 25;

void WriteFrames(media::PSFile& file, const Content& content, std::int64_t begin,
                 const std::vector<std::byte>& payload) {
  media::PSFrame frame;
  frame.payload = payload.data();
  frame.payloadSize = content.payloadBytes;
  for (int number = 0; number < content.frames; ++number) {
    frame.SetTime(begin * 1000 + std::int64_t{number} * content.stepMs);
    frame.frameType = number % kGroupFrames == 0 ? 1 : 2;
    for (int channel = 0; channel < content.channels; ++channel) {
      frame.stream = static_cast<std::uint16_t>(channel);
      frame.channel = static_cast<std::uint8_t>(channel);
      if (file.WriteFrame(frame) != 0) throw std::runtime_error("a frame could not be planted");
    }
  }
}

}  // namespace

std::string PlantFile(int camera, std::int64_t begin, const Content& content,
                      media::RunTables* closed) {
  const std::vector<std::byte> payload(content.payloadBytes, std::byte{0x5A});
  std::array<media::PsStreamDescriptor, media::kStreamCount> descriptors;
  for (std::size_t stream = 0; stream < static_cast<std::size_t>(content.channels); ++stream) {
    descriptors[stream].streamType = 130;
    descriptors[stream].streamId = static_cast<std::uint8_t>(0xE0 + stream);
    descriptors[stream].channel = static_cast<std::uint8_t>(stream);
  }
  media::PsFileInfo info;
  info.fileInput[0] = 0xFF;
  const std::uint32_t id = kProvider | static_cast<std::uint32_t>(camera) << 8 | 0xFFu;
  std::string path = media::MakePath(kDrive, begin * 1000, id, media::CreateDirectories::Yes);
  media::PSFile file(media::SystemPlatform().mediaFiles, closed);
  if (file.Create(path, info, descriptors, 0) != 0) {
    throw std::runtime_error(path + " could not be planted");
  }
  WriteFrames(file, content, begin, payload);
  file.Close();
  return path;
}

SearchSite::SearchSite(const std::string& module) : host(module) {
  host.Start({0, 0, 0});
}

SearchSite::~SearchSite() {
  host.Stop();
}

std::vector<std::string> SearchSite::Plant(int cameras, int filesEach, const Content& content,
                                           std::int64_t begin) {
  std::vector<std::string> paths;
  for (int number = 0; number < filesEach; ++number) {
    for (int camera = 0; camera < cameras; ++camera) {
      paths.push_back(PlantFile(camera, begin + number * kPlantSeconds, content));
    }
  }
  return paths;
}

std::string RequestText(int type, std::int64_t start, std::int64_t end, int cameras, int channels) {
  std::ostringstream xml;
  xml << "<qDVR Type='" << type << "' Start='" << start << "' End='" << end << "'><Devices ID='"
      << kProvider << "'>";
  for (int camera = 0; camera < cameras; ++camera) {
    xml << "<Device Number='" << camera << "'><Video>";
    for (int channel = 0; channel < channels; ++channel)
      xml << "<Input Number='" << channel << "'/>";
    xml << "</Video></Device>";
  }
  xml << "</Devices></qDVR>";
  return xml.str();
}

}  // namespace bench
