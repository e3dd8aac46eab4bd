#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qv::kelvo {

// A directory of a test's own, without a `-` in its path, removed with all below at the end.
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

  // Files below, relative to the root, with `/`, ascending.
  [[nodiscard]] std::vector<std::string> Files() const;
  [[nodiscard]] std::vector<std::string> FilesEndingIn(std::string_view suffix) const;

 private:
  std::string root;
};

}  // namespace qv::kelvo
