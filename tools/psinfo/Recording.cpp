#include "psinfo/Recording.h"

#include <memory>
#include <span>
#include <stdexcept>
#include <system_error>

#include "platform/Platform.h"
#include "psinfo/IndexCheck.h"
#include "psinfo/MediaWalk.h"

namespace psinfo {
namespace {

using qv::kelvo::MediaFile;

// Returns 0 or the system's error number.
int Open(const std::string& path, std::unique_ptr<MediaFile>& file, std::uint64_t& size) {
  const int error =
      qv::kelvo::SystemPlatform().mediaFiles.Open(path, qv::kelvo::OpenMode::Read, file);
  return error == 0 ? file->Size(size) : error;
}

}  // namespace

void Recording::MediaFault(std::uint64_t offset, const std::string& rule) {
  faults.push_back("media offset " + std::to_string(offset) + ": " + rule);
}

void Recording::IndexFault(std::uint64_t offset, const std::string& rule) {
  faults.push_back("index offset " + std::to_string(offset) + ": " + rule);
}

std::vector<const Frame*> Recording::Of(unsigned stream) const {
  std::vector<const Frame*> list;
  for (const auto& frame : frames) {
    if (frame.stream == stream) list.push_back(&frame);
  }
  return list;
}

Recording ReadRecording(const std::string& path, Expected expected) {
  Recording recording;
  recording.path = path;
  std::unique_ptr<MediaFile> file;
  std::uint64_t size = 0;
  if (const int error = Open(path, file, size); error != 0) {
    throw std::runtime_error(path + ": " + std::generic_category().message(error));
  }
  // A killed writer may not have come further; then there is nothing to check.
  if (expected == Expected::Unclosed && size < kFirstFrame) return recording;
  WalkMedia(*file, size, expected, recording);

  const bool begun = expected == Expected::Unclosed && size == kFirstFrame;
  if (Open(path + "i", file, size) != 0) {
    if (!begun) recording.IndexFault(0, "there is no index");
    return recording;
  }
  Bytes index(static_cast<std::size_t>(size));
  index.resize(file->ReadAt(0, std::as_writable_bytes(std::span(index))).bytes);
  if (!begun || index.size() >= kIndexHead) CheckIndex(index, expected, recording);
  return recording;
}

}  // namespace psinfo
