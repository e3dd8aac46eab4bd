// Files of XML documents: loading, and saving that survives a crash.

#include <boost/filesystem/operations.hpp>
#include <span>
#include <utility>

#include "host/Xml.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::uint64_t kMaxFileBytes = std::uint64_t{64} << 20;

std::string BackupOf(const std::string& path) {
  return path + ".bak";
}

// Reads a whole file; false when it isn't a regular one, too large or unreadable.
bool ReadWholeFile(qv::kelvo::MediaFiles& files, const std::string& path, std::string& text) {
  boost::system::error_code error;
  std::unique_ptr<qv::kelvo::MediaFile> file;
  std::uint64_t size = 0;
  if (!boost::filesystem::is_regular_file(path, error) ||
      files.Open(path, qv::kelvo::OpenMode::Read, file) != 0 || file->Size(size) != 0 ||
      size > kMaxFileBytes) {
    return false;
  }
  text.resize(static_cast<std::size_t>(size));
  const qv::kelvo::IoResult result =
      file->ReadAt(0, std::as_writable_bytes(std::span(text.data(), text.size())));
  text.resize(result.bytes);
  return result.error == 0;
}

// True when `error` says that the step was done, or that there was nothing to do.
bool DoneOrMissing(qv::kelvo::DurableFiles& files, int error) {
  return error == 0 || files.IsMissing(error);
}

// Puts a complete pending file into the place of `path`.
bool Swap(qv::kelvo::DurableFiles& files, const std::string& pending, const std::string& path) {
  const std::string backup = BackupOf(path);
  bool backupMade = false;
  if (DoneOrMissing(files, files.Remove(backup)) &&
      DoneOrMissing(files, files.Rename(path, backup))) {
    backupMade = true;
    if (files.Rename(pending, path) == 0) {
      (void)files.Remove(backup);  // else the next load does
      return true;
    }
  }
  (void)files.Remove(pending);
  if (backupMade) (void)files.Rename(backup, path);
  return false;
}

}  // namespace

void XmlDocument::FailWith(int code, std::string text) {
  ownError = code;
  ownText = std::move(text);
}

bool XmlDocument::LoadFile(qv::kelvo::MediaFiles& files, const std::string& path) {
  std::string text;
  if (ReadWholeFile(files, path, text)) return ParseText(text);
  Clear();
  ClearError();
  FailWith(kErrorNotOpened, "Failed to open file");
  return false;
}

// Writes the document as a new file; what went wrong, or nothing.
std::string XmlDocument::WritePending(qv::kelvo::DurableFiles& files,
                                      const std::string& path) const {
  using Step = qv::kelvo::DurableFiles::WriteStep;
  TiXmlPrinter printer;
  Accept(&printer);
  const std::string& text = printer.Str();
  const auto result = files.WriteNew(path, text);
  const std::string number = std::to_string(result.error);
  switch (result.step) {
    case Step::Create:
      return "create error " + number;
    case Step::Write:
      return "write error " + number;
    case Step::Close:
      return "close error " + number;
    case Step::Done:
      break;
  }
  if (result.written == text.size()) return {};
  return "only wrote " + std::to_string(result.written) + " of " + std::to_string(text.size()) +
         " bytes";
}

bool XmlDocument::SaveFile(qv::kelvo::DurableFiles& files, const std::string& path) {
  const std::string pending = path + ".pending";
  if (std::string message = WritePending(files, pending); !message.empty()) {
    (void)files.Remove(pending);
    FailWith(kErrorNotSaved, std::move(message));
    return false;
  }
  if (Swap(files, pending, path)) return true;
  FailWith(kErrorNotSaved, "xml file swap failed");
  return false;
}

bool XmlDocument::LoadFileWithBackup(const qv::kelvo::Platform& platform, const std::string& path) {
  qv::kelvo::DurableFiles& durable = platform.durableFiles;
  const std::string backup = BackupOf(path);
  if (LoadFile(platform.mediaFiles, path)) {
    (void)durable.Remove(backup);
    return true;
  }
  if (!LoadFile(platform.mediaFiles, backup)) return false;
  (void)durable.Remove(path);
  (void)durable.Rename(backup, path);
  return true;
}

}  // namespace qvsvr::kelvo
