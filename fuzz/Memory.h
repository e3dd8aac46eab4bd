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
// media file.
struct Recording {
  Recording(const std::uint8_t* data, std::size_t size, std::size_t options) {
    const Bytes all = AsBytes(data, size);
    if (size < options + 2) return;
    const std::size_t length = data[options] | std::size_t{data[options + 1]} << 8;
    const Bytes rest = all.subspan(options + 2);
    index = rest.first(std::min(length, rest.size()));
    media = rest.subspan(index.size());
  }
  Bytes index, media;
};

// One recording in memory under whatever name; without an index if it is empty.
class MemoryFiles : public qv::kelvo::MediaFiles {
 public:
  int Open(const std::string& path, qv::kelvo::OpenMode,
           std::unique_ptr<qv::kelvo::MediaFile>& file) override {
    const bool isIndex = path.ends_with('i');
    if (isIndex && recording.index.empty()) return ENOENT;
    file = std::make_unique<File>(isIndex ? recording.index : recording.media);
    return 0;
  }
  Recording recording{nullptr, 0, 0};

 private:
  struct File : qv::kelvo::MediaFile {
    explicit File(Bytes bytes) : content(bytes) {}
    qv::kelvo::IoResult ReadAt(std::uint64_t at, qv::kelvo::MutableBytes to) override {
      if (at >= content.size()) return {};
      const std::size_t count = std::min<std::size_t>(to.size(), content.size() - at);
      std::copy_n(content.begin() + static_cast<std::ptrdiff_t>(at), count, to.begin());
      return {count, 0};
    }
    qv::kelvo::IoResult WriteAt(std::uint64_t, std::span<const qv::kelvo::ConstBytes>) override {
      return {0, EBADF};
    }
    int Size(std::uint64_t& bytes) override {
      bytes = content.size();
      return 0;
    }
    int CreationTime(std::int64_t& seconds) override {
      seconds = 1'750'000'000;
      return 0;
    }
    int SetSize(std::uint64_t) override { return EBADF; }
    int Close() override { return 0; }
    const Bytes content;
  };
};

}  // namespace fuzz
