// Files of XML documents: loading, and saving that survives a crash.

#include <boost/filesystem/operations.hpp>
#include <span>
#include <utility>

#include "host/Xml.h"

namespace qvsvr::kelvo {
namespace {

namespace fs = boost::filesystem;

// More than any document that is accepted.
constexpr std::uint64_t kMaxFileBytes = std::uint64_t{1} << 30;
// A call that failed for want of something is tried again.
constexpr int kTries = 3;

std::string BackupOf(const std::string& path) {
  return path + ".bak";
}

// Reads a whole file. `error` gets the system's number when it is Unreadable.
XmlFileState ReadOnce(qv::kelvo::MediaFiles& files, const std::string& path, std::string& text,
                      int& error) {
  boost::system::error_code status;
  const fs::file_type type = fs::status(path, status).type();
  error = status.value();
  if (type == fs::file_not_found) return XmlFileState::Missing;
  if (type == fs::status_error || type == fs::type_unknown) return XmlFileState::Unreadable;
  if (type != fs::regular_file) return XmlFileState::Damaged;
  std::unique_ptr<qv::kelvo::MediaFile> file;
  std::uint64_t size = 0;
  error = files.Open(path, qv::kelvo::OpenMode::Read, file);
  if (error == 0) error = file->Size(size);
  if (error != 0) return XmlFileState::Unreadable;
  if (size > kMaxFileBytes) return XmlFileState::Damaged;
  text.resize(static_cast<std::size_t>(size));
  const qv::kelvo::IoResult result =
      file->ReadAt(0, std::as_writable_bytes(std::span(text.data(), text.size())));
  error = result.error;
  return error == 0 && result.bytes == size ? XmlFileState::Good : XmlFileState::Unreadable;
}

XmlFileState ReadWholeFile(qv::kelvo::MediaFiles& files, const std::string& path, std::string& text,
                           int& error) {
  auto state = XmlFileState::Unreadable;
  for (int i = 0; i < kTries && state == XmlFileState::Unreadable; ++i) {
    state = ReadOnce(files, path, text, error);
  }
  return state;
}

// True when `error` says that the step was done, or that there was nothing to do.
bool DoneOrMissing(qv::kelvo::DurableFiles& files, int error) {
  return error == 0 || files.IsMissing(error);
}

// Makes `path` the backup. An old backup gives way only while there is a file to take its place.
bool MakeBackup(qv::kelvo::DurableFiles& files, const std::string& path,
                const std::string& backup) {
  const int error = files.Rename(path, backup);
  if (DoneOrMissing(files, error)) return true;
  return DoneOrMissing(files, files.Remove(backup)) &&
         DoneOrMissing(files, files.Rename(path, backup));
}

// Puts a complete pending file into the place of `path`.
bool Swap(qv::kelvo::DurableFiles& files, const std::string& pending, const std::string& path) {
  const std::string backup = BackupOf(path);
  const bool backupMade = MakeBackup(files, path, backup);
  if (backupMade && files.Rename(pending, path) == 0) {
    (void)files.Remove(backup);  // else the next load does
    return true;
  }
  (void)files.Remove(pending);
  if (backupMade) (void)files.Rename(backup, path);
  return false;
}

std::string WriteNew(qv::kelvo::DurableFiles& files, const std::string& path,
                     const std::string& text) {
  using Step = qv::kelvo::DurableFiles::WriteStep;
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

}  // namespace

void XmlDocument::FailWith(int code, std::string text) {
  ownError = code;
  ownText = std::move(text);
}

XmlFileState XmlDocument::LoadFile(qv::kelvo::MediaFiles& files, const std::string& path) {
  std::string text;
  int number = 0;
  const XmlFileState state = ReadWholeFile(files, path, text, number);
  if (state == XmlFileState::Good) {
    return ParseFrom(Source::File, text) ? XmlFileState::Good : XmlFileState::Damaged;
  }
  Clear();
  ClearError();
  FailWith(kErrorNotOpened, state == XmlFileState::Unreadable
                                ? "Failed to open file, error " + std::to_string(number)
                                : "Failed to open file");
  return state;
}

std::string XmlDocument::PrintWhole() {
  TiXmlElement* const root = FirstChildElement(kRootName);
  std::vector<TiXmlNode*> put;
  for (const std::string& element : aside) {
    if (root == nullptr) break;
    // The library prints a node that it doesn't know as it stands between < and >.
    auto* const node = new TiXmlUnknown;
    node->SetValue(element.substr(1, element.size() - 2));
    put.push_back(root->LinkEndChild(node));
  }
  std::string text = PrintXml(*this, "\n");
  for (TiXmlNode* node : put) root->RemoveChild(node);
  return text;
}

// Writes the document as a new file and reads it back; what went wrong, or nothing.
std::string XmlDocument::WritePending(const qv::kelvo::Platform& platform,
                                      const std::string& path) {
  const std::string text = PrintWhole();
  std::string message = WriteNew(platform.durableFiles, path, text);
  if (!message.empty()) return message;
  std::string back;
  int number = 0;
  if (ReadWholeFile(platform.mediaFiles, path, back, number) != XmlFileState::Good) {
    return "read back error " + std::to_string(number);
  }
  if (back != text) return "read back other bytes than were written";
  XmlDocument document;
  document.nameAside = nameAside;
  if (document.ParseFrom(Source::File, back)) return {};
  return std::string("read back: ") + document.ErrorDesc();
}

bool XmlDocument::SaveFile(const qv::kelvo::Platform& platform, const std::string& path) {
  const std::string pending = path + ".pending";
  std::string message = WritePending(platform, pending);
  if (!message.empty()) {
    (void)platform.durableFiles.Remove(pending);
  } else if (Swap(platform.durableFiles, pending, path)) {
    return true;
  } else {
    message = "xml file swap failed";
  }
  FailWith(kErrorNotSaved, std::move(message));
  return false;
}

XmlFileState XmlDocument::LoadFileWithBackup(const qv::kelvo::Platform& platform,
                                             const std::string& path) {
  qv::kelvo::DurableFiles& durable = platform.durableFiles;
  const std::string backup = BackupOf(path);
  const XmlFileState state = LoadFile(platform.mediaFiles, path);
  if (state == XmlFileState::Good) (void)durable.Remove(backup);
  // What can't be read just now may be better than its backup.
  if (state == XmlFileState::Good || state == XmlFileState::Unreadable) return state;
  const XmlFileState second = LoadFile(platform.mediaFiles, backup);
  if (second == XmlFileState::Missing) return state;
  if (second == XmlFileState::Good) {
    (void)durable.Remove(path);
    (void)durable.Rename(backup, path);
  }
  return second;
}

}  // namespace qvsvr::kelvo
