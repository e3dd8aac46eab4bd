#include "tests/support/TempTree.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/Platform.h"

namespace qv::kelvo {

namespace fs = boost::filesystem;

std::string Slashed(std::string_view path) {
  std::string slashed(path);
  std::replace_if(slashed.begin(), slashed.end(), IsPathSeparator, '/');
  return slashed;
}

namespace {

// The tested code may remove what is being listed.
void AddFilesBelow(const fs::path& directory, std::vector<std::string>& files) {
  boost::system::error_code vanished;
  fs::directory_iterator entry(directory, vanished);
  for (; !vanished && entry != fs::directory_iterator(); entry.increment(vanished)) {
    boost::system::error_code gone;
    const fs::file_status status = entry->symlink_status(gone);
    if (fs::is_directory(status)) AddFilesBelow(entry->path(), files);
    if (fs::is_regular_file(status)) files.push_back(entry->path().generic_string());
  }
}

}  // namespace

std::vector<std::string> FilesBelow(const std::string& root, std::string_view suffix) {
  std::vector<std::string> files;
  AddFilesBelow(root, files);
  std::erase_if(files, [suffix](const std::string& path) { return !path.ends_with(suffix); });
  for (std::string& path : files)
    path.erase(0, root.size() + (IsPathSeparator(root.back()) ? 0 : 1));
  std::sort(files.begin(), files.end());
  return files;
}

TempTree::TempTree() {
  fs::path base = fs::temp_directory_path();
  if (base.string().find('-') != std::string::npos) base = "/tmp";
  root = (base / fs::unique_path("kelvo_t\xC3\xABst\xE6\x97\xA5_%%%%%%%%%%")).string();
  fs::create_directories(root);
}

TempTree::~TempTree() {
  boost::system::error_code ignored;  // a test that took rights away may leave something behind
  fs::remove_all(root, ignored);
}

std::string TempTree::Path(std::string_view relative) const {
  return fs::path(root + '/' + std::string(relative)).make_preferred().string();
}

std::string TempTree::MakeDirectory(std::string_view relative) const {
  fs::create_directories(Path(relative));
  return Path(relative) + kPathSeparator;
}

void TempTree::Write(std::string_view relative, std::string_view content) const {
  const fs::path path = Path(relative);
  fs::create_directories(path.parent_path());
  std::ofstream(std::filesystem::path(path.native()), std::ios::binary)
      .write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string TempTree::Read(std::string_view relative) const {
  std::ifstream file(std::filesystem::path(fs::path(Path(relative)).native()), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace qv::kelvo
