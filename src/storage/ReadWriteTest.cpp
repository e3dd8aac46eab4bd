#include "storage/ReadWriteTest.h"

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <cstddef>

#include "host/Log.h"
#include "platform/Platform.h"

namespace qvsvr::kelvo {
namespace {

using Block = std::array<std::byte, 4096>;
using boost::system::error_code;

std::string ErrorText(int error) {
  // A disk that is full may take a part without an error.
  if (error == 0) return "incomplete";
  return error_code(error, boost::system::system_category()).message();
}

bool Remove(const std::string& path) {
  error_code error;
  boost::filesystem::remove(path, error);
  if (error) LogPrintf(LogError, "RWT - remove %s, %s", path.c_str(), error.message().c_str());
  return !error;
}

bool Write(qv::kelvo::MediaFiles& files, const std::string& path, const Block& block) {
  std::unique_ptr<qv::kelvo::MediaFile> file;
  int error = files.Open(path, qv::kelvo::OpenMode::CreateOrTruncate, file);
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

bool Read(qv::kelvo::MediaFiles& files, const std::string& path, Block& block) {
  std::unique_ptr<qv::kelvo::MediaFile> file;
  qv::kelvo::IoResult result;
  result.error = files.Open(path, qv::kelvo::OpenMode::Read, file);
  if (result.error == 0) result = file->ReadAt(0, block);
  if (result.error == 0 && result.bytes == block.size()) return true;
  LogPrintf(LogError, "RWT - read %s, failed: %s", path.c_str(), ErrorText(result.error).c_str());
  return false;
}

}  // namespace

bool ReadWriteTest::Run(const std::string& driveName) {
  const std::string directory = driveName + "kelvo";
  const std::string path = directory + qv::kelvo::kPathSeparator + "test.bin";
  if (!Remove(path) || !Remove(directory)) return false;
  // A drive whose root is gone must not come back as a directory of another one.
  error_code error;
  boost::filesystem::create_directory(directory, error);
  if (error) {
    LogPrintf(LogError, "RWT - create %s, %s", directory.c_str(), error.message().c_str());
    return false;
  }
  Block written;
  written.fill(static_cast<std::byte>(testPattern++));
  Block read{};
  if (!Write(files, path, written) || !Read(files, path, read)) return false;
  if (read == written) return true;
  LogPrintf(LogError, "RWT - compare %s, failed", path.c_str());
  return false;
}

}  // namespace qvsvr::kelvo
