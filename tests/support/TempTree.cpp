#include "tests/support/TempTree.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <boost/filesystem/fstream.hpp>
#include <iterator>

#include "platform/Platform.h"

namespace qv::kelvo {

namespace fs = boost::filesystem;

std::string Slashed(std::string_view path) {
  std::string slashed(path);
  std::replace_if(slashed.begin(), slashed.end(), IsPathSeparator, '/');
  return slashed;
}

std::vector<std::string> FilesBelow(const std::string& root, std::string_view suffix) {
  std::vector<std::string> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    const std::string path = entry.path().generic_string();
    if (fs::is_regular_file(entry.status()) && path.ends_with(suffix)) {
      files.push_back(path.substr(root.size() + (root.back() == kPathSeparator ? 0 : 1)));
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

TempTree::TempTree() {
  fs::path base = fs::temp_directory_path();
  if (base.string().find('-') != std::string::npos) base = "/tmp";
  root = (base / fs::unique_path("kelvo_test_%%%%%%%%%%%%")).string();
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
  fs::ofstream(path, std::ios::binary)
      .write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string TempTree::Read(std::string_view relative) const {
  fs::ifstream file(Path(relative), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace qv::kelvo
