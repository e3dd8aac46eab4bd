#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qv::kelvo {

// The path with `/` for each separator, as tests write paths.
[[nodiscard]] std::string Slashed(std::string_view path);

// Files below `root` whose names end so, relative to it, with `/`, ascending.
[[nodiscard]] std::vector<std::string> FilesBelow(const std::string& root, std::string_view suffix);

// A directory of a test's own, without a `-` in its path and with letters beyond any code page,
// removed with all below at the end.
class TempTree {
 public:
  TempTree();
  ~TempTree();
  TempTree(const TempTree&) = delete;
  TempTree& operator=(const TempTree&) = delete;

  // Absolute, without a separator at the end.
  [[nodiscard]] const std::string& Root() const { return root; }
  [[nodiscard]] std::string Path(std::string_view relative) const;

  // Makes a directory, with those above it; returns its path with a separator at the end.
  std::string MakeDirectory(std::string_view relative) const;
  void Write(std::string_view relative, std::string_view content) const;  // makes directories, too
  [[nodiscard]] std::string Read(std::string_view relative) const;        // "" if there is none

  [[nodiscard]] std::vector<std::string> Files() const { return FilesBelow(root, ""); }
  [[nodiscard]] std::vector<std::string> FilesEndingIn(std::string_view suffix) const {
    return FilesBelow(root, suffix);
  }

 private:
  std::string root;
};

}  // namespace qv::kelvo
