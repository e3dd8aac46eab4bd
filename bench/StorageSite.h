#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/Measure.h"
#include "bench/StorageTree.h"
#include "record/CRecordMgr.h"

namespace bench {

// A host that drops everything and only notices when recording isn't possible.
class DeafCore : public qvsvr::kelvo::ICoreEventer {
 public:
  std::uint32_t SendHostMessage(const KelvoHostRequest&, KelvoHostReply&) override { return 0; }
  void SendXmlEvent(const std::string& xml, std::uint32_t) override {
    notPossible += xml.find("Recording Not Possible") != std::string::npos;
  }
  void DecrementReference(void*) override {}
  std::uint32_t GetCoreTime(std::int64_t&, std::uint16_t&) override { return 0; }
  bool IsStopping() const override { return false; }
  int notPossible = 0;
};

class NobodyManager : public qvsvr::kelvo::IRecordManager {
 public:
  std::int64_t ReservedGB(const std::string&) const override { return 0; }
  bool IsStopping() const override { return false; }
};

// The storage of a plug-in in the current directory, without the plug-in around it.
struct Site {
  SetClock clock;
  ToldDrives drives;
  CountedListings listings;
  qv::kelvo::Platform platform{clock,
                               drives,
                               listings,
                               qv::kelvo::SystemPlatform().mediaFiles,
                               qv::kelvo::SystemPlatform().durableFiles,
                               qv::kelvo::SystemPlatform().diskSync};
  DeafCore core;
  NobodyManager manager;
  std::unique_ptr<qvsvr::kelvo::CFileSystem> storage;

  // Begins anew, without settings.
  void Open();
  void Apply(const std::string& storageXml);
};

// Cameras of another provider than the tree's, handled on this thread as the worker does.
class Recorder {
 public:
  // `schedule` goes into the schedule of each input.
  Recorder(Site& onSite, int cameraCount, std::size_t frameSize, const std::string& schedule = "");

  // As a host sends it.
  void Configure(std::string text);
  // In groups of 25, by turns of the cameras.
  void Give(int frames);

 private:
  Site& site;
  int cameras;
  qvsvr::kelvo::RecordQueue queue;
  qvsvr::kelvo::CRecordMgr manager;
  std::vector<char> payload;
  int given = 0;
};

template <typename Action>
double Ms(Action action) {
  const std::int64_t begin = WallNs();
  action();
  return static_cast<double>(WallNs() - begin) / 1e6;
}

template <typename Action>
double CpuMs(Action action) {
  const std::int64_t begin = ThreadCpuNs();
  action();
  return static_cast<double>(ThreadCpuNs() - begin) / 1e6;
}

}  // namespace bench
