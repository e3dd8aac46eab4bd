#pragma once

#include <string>

#include "host/Xml.h"
#include "platform/Platform.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {

// The settings on disk: "kelvo.xml" in the process's current directory as it was at Locate, since
// the rest of the host may change it. Elements and drives that
// this system doesn't know stay in it. A file that is damaged, and whose backup is no better, is
// put aside under another name; one that the system can't read just now is left alone. What
// couldn't be written goes out with the next save. Worker thread only.
class StorageFile {
 public:
  // Borrows the platform for its life.
  explicit StorageFile(const qv::kelvo::Platform& borrowed) : platform(borrowed) {}

  // Finds out the directory, and tells it.
  void Locate();

  // Reads what is to be put in force: what the file holds, the bookmarks as text aside, then what
  // came meanwhile. Empty but for a root without a file. False when there may be settings that
  // can't be read: ask again later.
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
  // Missing when it is done, else Unreadable.
  XmlFileState PutAside(const std::string& cause);
  bool Write(XmlDocument& document);

  [[nodiscard]] std::string PathOf(const std::string& name) const { return directory + name; }

  const qv::kelvo::Platform& platform;
  std::string directory;  // with a separator at its end
  bool known = false;
  bool readFailed = false;
  bool writeFailed = false;
  TiXmlElement changes{kRootName};
  std::string casesText;  // the bookmarks in force
  bool casesOwed = false;
  bool settingsOwed = false;
};

}  // namespace qvsvr::kelvo
