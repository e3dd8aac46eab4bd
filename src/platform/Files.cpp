#include "platform/Files.h"

#include <boost/filesystem/operations.hpp>

#include "platform/Native.h"

namespace qv::kelvo {
namespace {

namespace fs = boost::filesystem;
using boost::system::error_code;

// By identity and not by name, which links and letter case change.
bool LiesWithin(fs::path inner, const fs::path& outer) {
  for (; !inner.empty(); inner = inner.parent_path()) {
    error_code missing;
    if (inner == outer || fs::equivalent(inner, outer, missing)) return true;
    if (inner == inner.parent_path()) break;
  }
  return false;
}

fs::path Resolved(const std::string& directory) {
  const fs::path given = NativePath(directory);
  error_code failed;
  fs::path path = fs::weakly_canonical(given, failed);
  if (failed) path = given.lexically_normal();
  return path.filename() == "." ? path.parent_path() : path;
}

error_code SystemCode(int error) {
  return {error, boost::system::system_category()};
}

}  // namespace

bool Exists(const std::string& path) {
  FileKind kind{};
  return FindKind(path, kind) == 0 && kind != FileKind::Missing;
}

bool IsDirectory(const std::string& path) {
  FileKind kind{};
  return FindKind(path, kind) == 0 && kind == FileKind::Directory;
}

int RemoveFile(const std::string& path) {
  const fs::path native = NativePath(path);
  error_code error;
  bool removed = fs::remove(native, error);
  if (error && ClearReadOnly(path)) removed = fs::remove(native, error);
  if (!removed && !error) return boost::system::errc::no_such_file_or_directory;
  return error.value();
}

int CurrentDirectory(std::string& path) {
  error_code error;
  path = fs::current_path(error).string();
  return error.value();
}

bool Overlap(const std::string& a, const std::string& b) {
  const fs::path first = Resolved(a);
  const fs::path second = Resolved(b);
  return LiesWithin(first, second) || LiesWithin(second, first);
}

std::size_t PathLength(std::string_view path) {
  std::size_t units = 0;
  for (const char letter : path) {
    const auto byte = static_cast<unsigned char>(letter);
    // Continuing bytes count nothing; a character beyond U+FFFF is two.
    if ((byte & 0xC0) != 0x80) units += byte >= 0xF0 ? 2 : 1;
  }
  return units;
}

bool IsMissing(int error) {
  return SystemCode(error) == boost::system::errc::no_such_file_or_directory;
}

bool IsNotEmpty(int error) {
  return SystemCode(error) == boost::system::errc::directory_not_empty;
}

std::string ErrorText(int error) {
  return SystemCode(error).message();
}

}  // namespace qv::kelvo
