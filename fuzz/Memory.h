#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/Directory.h"
#include "platform/MediaFile.h"

namespace fuzz {

using Bytes = std::span<const std::byte>;

inline Bytes AsBytes(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const std::byte*>(data), size};
}

// An input taken apart: options, then the index with its length in two bytes ahead of it, then the
// media file. The length's two highest bits give the index and the media file a hole at their end.
struct Recording {
  Recording(const std::uint8_t* data, std::size_t size, std::size_t options) {
    const Bytes all = AsBytes(data, size);
    if (size < options + 2) return;
    const std::size_t length = data[options] | std::size_t{data[options + 1] & 0x3Fu} << 8;
    if ((data[options + 1] & 0x80u) != 0) indexHole = kHole;
    if ((data[options + 1] & 0x40u) != 0) mediaHole = kHole;
    const Bytes rest = all.subspan(options + 2);
    index = rest.first(std::min(length, rest.size()));
    media = rest.subspan(index.size());
  }
  static constexpr std::uint64_t kHole = std::uint64_t{1} << 32;
  Bytes index, media;
  std::uint64_t indexHole = 0, mediaHole = 0;
};

// One recording in memory under whatever name; without an index if it is empty.
class MemoryFiles : public qv::kelvo::MediaFiles {
 public:
  int Open(const std::string& path, qv::kelvo::OpenMode,
           std::unique_ptr<qv::kelvo::MediaFile>& file) override {
    const bool isIndex = path.ends_with('i');
    if (isIndex && recording.index.empty()) return ENOENT;
    file = isIndex ? std::make_unique<File>(recording.index, recording.indexHole)
                   : std::make_unique<File>(recording.media, recording.mediaHole);
    return 0;
  }
  Recording recording{nullptr, 0, 0};

 private:
  struct File : qv::kelvo::MediaFile {
    File(Bytes bytes, std::uint64_t zeros) : content(bytes), size(bytes.size() + zeros) {}
    qv::kelvo::IoResult ReadAt(std::uint64_t at, qv::kelvo::MutableBytes to) override {
      if (at >= size) return {};
      to = to.first(std::min<std::uint64_t>(to.size(), size - at));
      const Bytes held = content.subspan(std::min<std::uint64_t>(at, content.size()));
      const std::size_t count = std::min(to.size(), held.size());
      std::ranges::copy(held.first(count), to.begin());
      std::ranges::fill(to.subspan(count), std::byte{0});
      return {to.size(), 0};
    }
    qv::kelvo::IoResult WriteAt(std::uint64_t, std::span<const qv::kelvo::ConstBytes>) override {
      return {0, EBADF};
    }
    int Size(std::uint64_t& bytes) override {
      bytes = size;
      return 0;
    }
    int CreationTime(std::int64_t& seconds) override {
      seconds = 1'750'000'000;
      return 0;
    }
    int SetSize(std::uint64_t) override { return EBADF; }
    int Close() override { return 0; }
    const Bytes content;
    const std::uint64_t size;
  };
};

}  // namespace fuzz
