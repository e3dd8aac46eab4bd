// Files of XML documents: loading, and saving that survives a crash.

#include <span>
#include <utility>

#include "host/Xml.h"
#include "platform/Files.h"

namespace qvsvr::kelvo {
namespace {

using qv::kelvo::FileKind;
using qv::kelvo::IsMissing;
using qv::kelvo::Platform;
using qv::kelvo::WhileBusy;

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
  FileKind kind{};
  error = qv::kelvo::FindKind(path, kind);
  if (error != 0) return XmlFileState::Unreadable;
  if (kind == FileKind::Missing) return XmlFileState::Missing;
  if (kind != FileKind::File) return XmlFileState::Damaged;
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

XmlFileState ReadWholeFile(const Platform& platform, const std::string& path, std::string& text,
                           int& error) {
  auto state = XmlFileState::Unreadable;
  for (int i = 0; i < kTries && state == XmlFileState::Unreadable; ++i) {
    const int last = WhileBusy(platform.clock, [&] {
      state = ReadOnce(platform.mediaFiles, path, text, error);
      return state == XmlFileState::Unreadable ? error : 0;
    });
    if (qv::kelvo::IsBusy(last)) break;
  }
  return state;
}

// A step on a file that need not be there.
int ErrorUnlessMissing(int error) {
  return IsMissing(error) ? 0 : error;
}

// Makes `path` the backup. An old backup gives way only while there is a file to take its place.
int MakeBackup(qv::kelvo::DurableFiles& files, const std::string& path, const std::string& backup) {
  int error = ErrorUnlessMissing(files.Rename(path, backup));
  if (error == 0) return 0;
  error = ErrorUnlessMissing(files.Remove(backup));
  return error != 0 ? error : ErrorUnlessMissing(files.Rename(path, backup));
}

// Puts a complete pending file into the place of `path`.
bool Swap(const Platform& platform, const std::string& pending, const std::string& path) {
  qv::kelvo::DurableFiles& files = platform.durableFiles;
  const std::string backup = BackupOf(path);
  int error = WhileBusy(platform.clock, [&] { return MakeBackup(files, path, backup); });
  const bool backupMade = error == 0;
  if (backupMade) {
    error = WhileBusy(platform.clock, [&] { return files.Rename(pending, path); });
  } else if (qv::kelvo::IsBusy(error)) {
    // A removed backup that somebody still holds keeps its name from others.
    error = files.Replace(pending, path);
  }
  if (error == 0) {
    (void)files.Remove(backup);  // else the next load does
    return true;
  }
  (void)files.Remove(pending);
  if (backupMade) (void)WhileBusy(platform.clock, [&] { return files.Rename(backup, path); });
  return false;
}

std::string WriteNew(const Platform& platform, const std::string& path, const std::string& text) {
  using Step = qv::kelvo::DurableFiles::WriteStep;
  qv::kelvo::DurableFiles::WriteResult result;
  (void)WhileBusy(platform.clock, [&] {
    result = platform.durableFiles.WriteNew(path, text);
    return result.step == Step::Create ? result.error : 0;
  });
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

XmlFileState XmlDocument::LoadFile(const Platform& platform, const std::string& path) {
  std::string text;
  int number = 0;
  const XmlFileState state = ReadWholeFile(platform, path, text, number);
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
  for (TiXmlNode* node : put) node->Parent()->RemoveChild(node);
  return text;
}

// Writes the document as a new file and reads it back; what went wrong, or nothing.
std::string XmlDocument::WritePending(const Platform& platform, const std::string& path) {
  const std::string text = PrintWhole();
  std::string message = WriteNew(platform, path, text);
  if (!message.empty()) return message;
  std::string back;
  int number = 0;
  if (ReadWholeFile(platform, path, back, number) != XmlFileState::Good) {
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
  } else if (Swap(platform, pending, path)) {
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
  const XmlFileState state = LoadFile(platform, path);
  if (state == XmlFileState::Good) (void)durable.Remove(backup);
  // What can't be read just now may be better than its backup.
  if (state == XmlFileState::Good || state == XmlFileState::Unreadable) return state;
  const XmlFileState second = LoadFile(platform, backup);
  if (second == XmlFileState::Missing) return state;
  if (second == XmlFileState::Good) {
    (void)WhileBusy(platform.clock, [&] { return durable.Replace(backup, path); });
  }
  return second;
}

}  // namespace qvsvr::kelvo
