#include "tests/support/TempTree.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>

namespace qv::kelvo {

namespace fs = boost::filesystem;

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
  return root + '/' + std::string(relative);
}

std::string TempTree::MakeDirectory(std::string_view relative) const {
  fs::create_directories(Path(relative));
  return Path(relative) + '/';
}

void TempTree::Write(std::string_view relative, std::string_view content) const {
  const fs::path path = Path(relative);
  fs::create_directories(path.parent_path());
  std::ofstream(path.string(), std::ios::binary)
      .write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string TempTree::Read(std::string_view relative) const {
  std::ifstream file(Path(relative), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> TempTree::Files() const {
  return FilesEndingIn("");
}

std::vector<std::string> TempTree::FilesEndingIn(std::string_view suffix) const {
  std::vector<std::string> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    const std::string path = entry.path().string();
    if (fs::is_regular_file(entry.status()) && path.ends_with(suffix)) {
      files.push_back(path.substr(root.size() + 1));
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace qv::kelvo
