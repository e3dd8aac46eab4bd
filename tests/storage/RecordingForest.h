#pragma once

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "host/Xml.h"
#include "platform/Platform.h"
#include "storage/CFileSystem.h"
#include "tests/support/FakeDrives.h"
#include "tests/support/FakeHost.h"
#include "tests/support/ManualClock.h"
#include "tests/support/Recordings.h"
#include "tests/support/ShakyFiles.h"
#include "tests/support/TempTree.h"
#include "tree/RecordPath.h"

namespace qvsvr::kelvo {

// The root element of a text, which must parse.
class ParsedXml {
 public:
  explicit ParsedXml(const std::string& text) { EXPECT_TRUE(document.ParseText(text)) << text; }
  [[nodiscard]] const TiXmlElement& Root() const { return *document.RootElement(); }

 private:
  XmlDocument document;
};

// Directory listings that are told of, with change stamps by hand.
class ToldDirectories : public qv::kelvo::Directories {
 public:
  int List(const std::string& path, std::string_view pattern, qv::kelvo::ListSizes sizes,
           const std::function<bool(const qv::kelvo::DirectoryEntry&)>& visit) override {
    if (onList) onList(path);
    if (sizesAreOld) sizes = qv::kelvo::ListSizes::No;
    return qv::kelvo::SystemPlatform().directories.List(path, pattern, sizes, visit);
  }
  std::uint64_t ChangeStamp(const std::string& path) override {
    return stampsKnown ? std::hash<std::string>()(path) + changes[path] + 1 : 0;
  }

  bool stampsKnown = false;
  bool sizesAreOld = false;                      // every file is told to be empty
  std::map<std::string, std::uint64_t> changes;  // to be counted for each directory
  std::function<void(const std::string&)> onList;
};

// Drives in the current directory on which each media file takes one GB of `capacityGB`.
class ForestDrives : public qv::kelvo::FakeDrives {
 public:
  std::string Space(const std::string& path, qv::kelvo::DriveSpace& space) override {
    if (path == faulty) return "gone";
    const std::uint64_t used = std::min<std::uint64_t>(count(path), capacityGB[path]);
    const std::uint64_t free = (capacityGB[path] - used) << 30;
    space = {capacityGB[path] << 30, free, free};
    return {};
  }
  // Leaves no room beside what is on them.
  void Fill() {
    for (auto& [name, capacity] : capacityGB) capacity = count(name);
  }

  std::map<std::string, std::uint64_t> capacityGB;
  std::function<std::uint64_t(const std::string&)> count = [](const std::string& drive) {
    return qv::kelvo::FilesBelow(drive, ".ps").size();
  };
  std::string faulty;
};

struct TestManager : IRecordManager {
  std::int64_t ReservedGB(const std::string& volume) const override {
    return reservedOn.empty() || reservedOn == volume ? reserved : 0;
  }
  bool IsBeingWritten(const std::string& path) const override {
    if (onQuestion) onQuestion();
    return path == open;
  }
  bool IsStopping() const override { return stopping; }
  std::function<void()> onQuestion;
  std::string open;
  std::int64_t reserved = 0;
  std::string reservedOn;  // one volume, or all
  bool stopping = false;
};

// Trees of recordings on drives "a/" and "b/" in the current directory, which is the test's own.
class RecordingForest : public ::testing::Test {
 protected:
  static constexpr std::int64_t kNow = 1'750'000'000;  // a Sunday in June, 17:06:40 local time
  static constexpr std::int64_t kHour = 3600;
  static constexpr std::int64_t kDay = 24 * kHour;
  static constexpr qv::kelvo::StreamID kCamera = 0x00120100;

  RecordingForest() : clock(kNow * 1000) {}

  void AddDrives(std::uint64_t capacityGB) {
    for (const char* name : {"a/", "b/"}) {
      boost::filesystem::create_directories(name);
      drives.Add(name);
      drives.capacityGB[name] = capacityGB;
    }
  }
  // A start of the plug-in.
  void Open() {
    storage = std::make_unique<CFileSystem>(core, platform);
    EXPECT_TRUE(storage->LoadStorage());
  }
  bool Apply(const std::string& storages) {
    const ParsedXml xml("<qDVR Delta='1'>" + storages + "</qDVR>");
    bool given = false;
    TiXmlElement reply("Storage");
    EXPECT_TRUE(storage->ApplyStorageXml(xml.Root(), given, reply));
    return given;
  }
  void GlobalRule(int type, int days) {
    Apply("<Storage ID='327680'><Expiration Type='" + std::to_string(type) + "' Days='" +
          std::to_string(days) + "'/></Storage>");
  }
  // A Bookmark element for device 1 of the provider, or another one.
  static std::string Bookmark(const std::string& id, std::int64_t start, std::int64_t end,
                              unsigned device = 1) {
    return "<Bookmark ID='" + id + "' Start='" + std::to_string(start) + "' End='" +
           std::to_string(end) + "'><Devices ID='1179648'><Device Number='" +
           std::to_string(device) + "'><Audio/></Device></Devices></Bookmark>";
  }
  void ApplyCases(const std::string& cases) {
    storage->ApplyCasesXml("<Cases ID='393216'>" + cases + "</Cases>", false);
  }
  static void WriteFile(const std::string& path, std::size_t size = 1) {
    boost::filesystem::create_directories(boost::filesystem::absolute(path).parent_path());
    std::ofstream(path, std::ios::binary) << std::string(size, 'x');
  }

  // A media file with its index, both without content; returns its path.
  static std::string Plant(const std::string& drive, std::int64_t time,
                           qv::kelvo::StreamID id = kCamera) {
    std::string path =
        qv::kelvo::MakePath(drive, time * 1000, id, qv::kelvo::CreateDirectories::No);
    WriteFile(path);
    WriteFile(path + "i");
    return path;
  }

  // One of an encoder's file with frames of an input's first stream from `last` on, or none.
  std::string PlantReal(const std::string& drive, std::int64_t time, qv::kelvo::StreamID id,
                        std::uint8_t fileInput, std::uint8_t channel, std::int64_t last,
                        int frames = 1) {
    std::string path =
        qv::kelvo::MakePath(drive, time * 1000, id, qv::kelvo::CreateDirectories::Yes);
    qv::kelvo::PSFile file(files);
    qv::kelvo::PsStreams streams;
    streams[0] = qv::kelvo::AllStreams()[0];
    streams[0].channel = channel;
    const std::string payload(64, '\0');
    std::vector<qv::kelvo::PSFrame> content;
    for (int n = 0; last != 0 && n < frames; ++n) {
      content.push_back(qv::kelvo::MakeFrame(0, 1, last * 1000 + n, payload));
      content.back().channel = channel;
    }
    qv::kelvo::WriteRecording(file, path, fileInput, streams, content);
    return path;
  }

  static bool Exists(const std::string& path) { return boost::filesystem::exists(path); }

  FakeHost host;
  qv::kelvo::ManualClock clock;
  ForestDrives drives;
  ToldDirectories directories;
  qv::kelvo::FaultyFiles files{qv::kelvo::SystemPlatform().mediaFiles};
  qv::kelvo::ShakyFiles durable;
  qv::kelvo::Platform platform{clock, drives,  directories,
                               files, durable, qv::kelvo::SystemPlatform().diskSync};
  FakeCore core{clock};
  TestManager manager;
  std::unique_ptr<CFileSystem> storage;
};

}  // namespace qvsvr::kelvo
