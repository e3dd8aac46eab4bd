#pragma once

#include <string>

#include "host/Xml.h"
#include "platform/Platform.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {

// The settings on disk: "kelvo.xml" in the process's current directory. Elements and drives that
// this system doesn't know stay in it. Worker thread only.
class StorageFile {
 public:
  // Borrows the platform for its life.
  explicit StorageFile(const qv::kelvo::Platform& borrowed) : platform(borrowed) {}

  // Reads the file or its backup. False when there is neither, or neither can be used.
  bool Load(XmlDocument& document);

  // Brings the file up to date with the tables. Returns the text of the broadcast that tells the
  // settings, also when the file could not be written.
  std::string Save(const StorageTables& tables);

  // Puts a copy of the element into the file, in the place of an earlier one of its name. Does
  // nothing without a file.
  void SaveElement(const TiXmlElement& element);

 private:
  void Write(XmlDocument& document);

  const qv::kelvo::Platform& platform;
  bool writeFailed = false;
};

}  // namespace qvsvr::kelvo
