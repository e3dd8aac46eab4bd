#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "tests/support/TempTree.h"

namespace qv::kelvo {

class DirectoriesTest : public testing::Test {
 protected:
  // Name -> size, with "dir" for directories.
  std::map<std::string, std::string> List(std::string_view pattern, ListSizes sizes) {
    std::map<std::string, std::string> found;
    EXPECT_EQ(directories.List(tree.Root(), pattern, sizes,
                               [&](const DirectoryEntry& entry) {
                                 const std::string size = std::to_string(entry.size);
                                 found.emplace(entry.name, entry.isDirectory ? "dir" : size);
                                 return true;
                               }),
              0);
    return found;
  }

  TempTree tree;
  Directories& directories = SystemPlatform().directories;
};

using Found = std::map<std::string, std::string>;

inline ConstBytes Bytes(std::string_view text) {
  return std::as_bytes(std::span(text));
}

class MediaFilesTest : public testing::Test {
 protected:
  std::unique_ptr<MediaFile> Open(const std::string& name, OpenMode mode) {
    std::unique_ptr<MediaFile> file;
    EXPECT_EQ(files.Open(tree.Path(name), mode, file), 0) << name;
    return file;
  }
  std::unique_ptr<MediaFile> Create(const std::string& name) {
    return Open(name, OpenMode::CreateOrTruncate);
  }
  static IoResult Write(MediaFile& file, std::uint64_t offset,
                        std::initializer_list<std::string_view> texts) {
    std::vector<ConstBytes> parts;
    for (const std::string_view text : texts) parts.push_back(Bytes(text));
    return file.WriteAt(offset, parts);
  }
  // Text of up to `size` bytes at `offset`, with the error's number in front if there is one.
  static std::string Read(MediaFile& file, std::uint64_t offset, std::size_t size) {
    std::string text(size, '#');
    const IoResult result = file.ReadAt(offset, std::as_writable_bytes(std::span(text)));
    text.resize(result.bytes);
    return (result.error != 0 ? std::to_string(result.error) + ':' : "") + text;
  }

  TempTree tree;
  MediaFiles& files = SystemPlatform().mediaFiles;
};

using Step = DurableFiles::WriteStep;

class DurableFilesTest : public testing::Test {
 protected:
  void ExpectWrite(std::string_view name, std::string_view content, Step step, int error,
                   std::size_t written) {
    const DurableFiles::WriteResult result = files.WriteNew(tree.Path(name), content);
    EXPECT_EQ(result.step, step) << name;
    EXPECT_EQ(result.error, error) << name;
    EXPECT_EQ(result.written, written) << name;
  }

  TempTree tree;
  DurableFiles& files = SystemPlatform().durableFiles;
};

}  // namespace qv::kelvo
