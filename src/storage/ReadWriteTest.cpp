#include "storage/ReadWriteTest.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "host/Log.h"
#include "platform/Files.h"

namespace qvsvr::kelvo {
namespace {

using Block = std::array<std::byte, 4096>;
std::string ErrorText(int error) {
  // A disk that is full may take a part without an error.
  return error == 0 ? "incomplete" : qv::kelvo::ErrorText(error);
}

using qv::kelvo::WhileBusy;

int Open(const qv::kelvo::Platform& platform, const std::string& path, qv::kelvo::OpenMode mode,
         std::unique_ptr<qv::kelvo::MediaFile>& file) {
  return WhileBusy(platform.clock, [&] { return platform.mediaFiles.Open(path, mode, file); });
}

int Remove(const std::string& path) {
  const int error = qv::kelvo::RemoveFile(path);
  return qv::kelvo::IsMissing(error) ? 0 : error;
}

bool Write(const qv::kelvo::Platform& platform, const std::string& path, const Block& block) {
  std::unique_ptr<qv::kelvo::MediaFile> file;
  int error = Open(platform, path, qv::kelvo::OpenMode::CreateOrTruncate, file);
  std::size_t written = 0;
  if (error == 0) {
    const qv::kelvo::ConstBytes part(block);
    const qv::kelvo::IoResult result = file->WriteAt(0, {&part, 1});
    written = result.bytes;
    error = result.error;
    const int closing = file->Close();
    if (error == 0) error = closing;
  }
  if (error == 0 && written == block.size()) return true;
  LogPrintf(LogError, "RWT - write %s, failed: %s", path.c_str(), ErrorText(error).c_str());
  return false;
}

bool Read(const qv::kelvo::Platform& platform, const std::string& path, Block& block) {
  std::unique_ptr<qv::kelvo::MediaFile> file;
  qv::kelvo::IoResult result;
  result.error = Open(platform, path, qv::kelvo::OpenMode::Read, file);
  if (result.error == 0) result = file->ReadAt(0, block);
  if (result.error == 0 && result.bytes == block.size()) return true;
  LogPrintf(LogError, "RWT - read %s, failed: %s", path.c_str(), ErrorText(result.error).c_str());
  return false;
}

}  // namespace

// Leaves an empty directory. Scanners and the like hold what they look at for a moment.
bool ReadWriteTest::Prepare(const std::string& directory, const std::string& path) {
  for (const std::string& left : {path, directory}) {
    // A file that somebody holds may be gone and still fill its directory.
    const int error = WhileBusy(
        platform.clock, [&] { return Remove(left); }, &qv::kelvo::IsNotEmpty);
    if (error == 0) continue;
    LogPrintf(LogError, "RWT - remove %s, %s", left.c_str(), ErrorText(error).c_str());
    return false;
  }
  // A drive whose root is gone must not come back as a directory of another one.
  const int error = WhileBusy(platform.clock, [&] { return qv::kelvo::MakeDirectory(directory); });
  if (error == 0) return true;
  LogPrintf(LogError, "RWT - create %s, %s", directory.c_str(), ErrorText(error).c_str());
  return false;
}

bool ReadWriteTest::Run(const std::string& driveName) {
  const std::string directory = driveName + "kelvo";
  const std::string path = directory + qv::kelvo::kPathSeparator + "test.bin";
  if (!Prepare(directory, path)) return false;
  Block written;
  written.fill(static_cast<std::byte>(testPattern++));
  Block read{};
  if (!Write(platform, path, written) || !Read(platform, path, read)) return false;
  if (read == written) return true;
  LogPrintf(LogError, "RWT - compare %s, failed", path.c_str());
  return false;
}

}  // namespace qvsvr::kelvo
