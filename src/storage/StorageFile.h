#pragma once

#include <string>

#include "host/Xml.h"
#include "platform/Platform.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {

// The settings on disk: "kelvo.xml" in the process's current directory as it was at Locate, since
// the rest of the host may change it.
//
// A setting that is lost may cost footage (a bookmark, days to keep), so it keeps these things
// true:
// - a save changes the file that is there: elements and drives that this system doesn't know stay;
// - the file is never written before it was read, and never while it can't be read just now;
// - a file that is damaged, and whose backup is no better, is put aside under another name;
// - what was written takes the old file's place only when it can be read back as the next start
//   would (XmlDocument::SaveFile), and what couldn't be written goes out with the next save.
//
// The bookmarks pass through as text and stand in memory as such beside their table. Most saves
// change nothing and write nothing, for each waits for the disk. Part of CFileSystem; worker thread
// only.
class StorageFile {
 public:
  // Borrows the platform for its life.
  explicit StorageFile(const qv::kelvo::Platform& borrowed) : platform(borrowed) {}

  // Finds out the directory, and tells it.
  void Locate();

  // Reads what is to be put in force: what the file holds, the bookmarks as text aside, then what
  // came meanwhile. Without a file that is a root and what came. False when there may be settings
  // that can't be read: ask again later.
  bool Learn(XmlDocument& document);

  // Whether the settings were learnt. Until then the tables hold defaults and are not written.
  [[nodiscard]] bool Known() const { return known; }

  // Takes a change that came before the settings were learnt: Learn gives it back.
  void Keep(const TiXmlElement& storage);

  // Brings the file up to date with the tables. Returns the text of the broadcast that tells the
  // settings, also when the file could not be written.
  std::string Save(const SavedTables& tables);

  // Puts the text of a Cases element into the file, in the place of an earlier one. Without a file
  // that can be read it waits for the next save. The same again costs no save.
  void SaveCases(const std::string& cases);

  // Whether something waits for the next save.
  [[nodiscard]] bool Owing() const { return known && (casesOwed || settingsOwed); }

 private:
  XmlFileState Load(XmlDocument& document);
  // Both files, each with its own cause. Missing when it is done, else Unreadable.
  XmlFileState PutAside(const std::string& cause, const std::string& backupCause);
  bool Write(XmlDocument& document);

  [[nodiscard]] std::string PathOf(const std::string& name) const { return directory + name; }

  const qv::kelvo::Platform& platform;
  std::string directory;  // with a separator at its end
  bool known = false;
  bool readFailed = false;
  bool writeFailed = false;
  TiXmlElement changes{kRootName};  // that came before the settings were learnt
  std::string casesText;            // the bookmarks in force
  bool casesOwed = false;           // not in the file yet
  bool settingsOwed = false;        // likewise, other settings
};

}  // namespace qvsvr::kelvo
