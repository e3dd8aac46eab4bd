#pragma once

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "host/Log.h"
#include "record/RecordStream.h"
#include "tests/support/FakeHost.h"
#include "tests/support/PsParser.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace qvsvr::kelvo {

// Storage with one volume, which a test can take away or let be searched for.
class OneVolume : public CFileSystem {
 public:
  using CFileSystem::CFileSystem;
  std::string GetRecordVolume(const IRecordManager*, std::int64_t) override {
    ++Asked;
    return Searching ? "" : Volume;
  }
  bool StillSearching() const override { return Searching; }
  bool RemoveFile(const std::string& path, bool force) override {
    return force && boost::filesystem::remove(path) && boost::filesystem::remove(path + 'i');
  }
  std::string Volume;
  bool Searching = false;
  int Asked = 0;
};

class NeverStopping : public IRecordManager {
 public:
  std::int64_t ReservedGB(const std::string&) const override { return 0; }
  bool IsStopping() const override { return false; }
};

// A core that remembers which of the named buffers came back, in order.
class ListingCore : public FakeCore {
 public:
  using FakeCore::FakeCore;
  void DecrementReference(void* buffer) override {
    if (auto named = Names.extract(buffer)) Returned.push_back(std::move(named.mapped()));
    FakeCore::DecrementReference(buffer);
  }
  void SendXmlEvent(const std::string& text, std::uint32_t eventClass) override {
    if (std::exchange(OutOfMemory, false)) throw std::bad_alloc();
    FakeCore::SendXmlEvent(text, eventClass);
  }
  bool OutOfMemory = false;  // for the next event
  std::map<void*, std::string> Names;
  std::vector<std::string> Returned;
};

// All that record streams stand on, with one volume.
class StreamParts : public ::testing::Test {
 protected:
  void SetUp() override { storage.Volume = tree.MakeDirectory("volume"); }

  FakeHost host;
  qv::kelvo::TestBundle bundle;
  ListingCore core{bundle.clock};
  qv::kelvo::TempTree tree;
  OneVolume storage{core, bundle.platform};
  NeverStopping manager;
  CRecordAlarms alarms{core};
  ReservationList reservations;
  RecordStats stats;
  RecordVolumes volumes{storage, manager};
  RecordServices services{core,   storage,      manager, volumes, bundle.platform,
                          alarms, reservations, stats};
};

// A stream of its own. Frames are written as text: `I0 1:P40m 16:A80`: slot (0 if none), type,
// milliseconds since the start of the clock, and flags: m motion, a alarm, z the camera moves. The
// text is the frame's payload, too.
class StreamTest : public StreamParts {
 protected:
  static constexpr std::uint32_t kStream = 0x00120180;
  static constexpr std::uint32_t kProvider = 0x00120100;  // plus the slot

  std::unique_ptr<RecordStream> NewStream(std::uint32_t id = kStream) {
    auto made = std::make_unique<RecordStream>(services, id);
    made->ActiveChannels = 1;
    made->Layout = 0x80;
    for (int slot = 0; slot < kSlots; ++slot) {
      made->MapChannel(static_cast<std::uint32_t>(slot), slot);
      ChannelSlot& mapped = made->Slots[static_cast<std::size_t>(slot)];
      mapped.Encoder = 0;
      mapped.Input = slot % kVideoSlots;
      mapped.Standard = 2;
    }
    return made;
  }

  static Schedule AllWeek(int value) { return {{0, 167, value}}; }

  bool FeedOne(const std::string& text) {
    const std::size_t colon = text.find(':');
    const int slot = colon == std::string::npos ? 0 : std::atoi(text.c_str());
    const std::string rest = text.substr(colon == std::string::npos ? 0 : colon + 1);
    const std::int64_t time = start + std::atoll(rest.c_str() + 1);
    const auto has = [&](char letter) { return rest.find(letter, 1) != std::string::npos; };
    KelvoFrameHeader header{};
    header.Seconds = static_cast<std::uint32_t>(time / 1000);
    header.Milliseconds = static_cast<std::uint16_t>(time % 1000);
    header.FrameType = static_cast<std::uint8_t>(std::string("AIPB").find(rest[0]));
    header.FrameFlags = static_cast<std::uint8_t>((has('m') ? 0x80 : 0) | (has('a') ? 0x40 : 0));
    void* buffer = host.NewBuffer(std::string_view(text.c_str(), text.size() + 1));
    core.Names[buffer] = text;
    const auto provider = kProvider + static_cast<std::uint32_t>(slot);
    const bool taken = stream->StreamAddFrame(
        provider, buffer, static_cast<std::uint32_t>(text.size()), 0, header, has('z'));
    if (!taken) core.DecrementReference(buffer);
    return taken;
  }
  void Feed(const std::string& frames) {
    std::istringstream words(frames);
    for (std::string word; words >> word;) EXPECT_TRUE(FeedOne(word)) << word;
  }

  // The frames of all files, oldest file first.
  std::string Written() {
    std::vector<std::string> frames;
    for (const std::string& file : tree.FilesEndingIn(".ps")) {
      const auto recording = testsupport::ReadPs(tree.Path(file));
      for (const auto& fault : recording.faults) ADD_FAILURE() << file << ": " << fault;
      for (const auto& frame : recording.frames) {
        frames.emplace_back(frame.payload.begin(), frame.payload.end());
      }
    }
    return Join(frames);
  }
  std::string Waiting() const {
    std::vector<std::string> frames;
    for (auto* frame = stream->Undecided().Front(); frame != nullptr; frame = frame->Newer) {
      frames.emplace_back(static_cast<const char*>(frame->Buffer));
    }
    return Join(frames);
  }
  static std::string Join(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
      if (!text.empty()) text += ' ';
      text += word;
    }
    return text;
  }

  const qv::kelvo::UtcMs start = bundle.clock.NowMs();
  std::unique_ptr<RecordStream> stream = NewStream();
  ChannelSlot& slot0 = stream->Slots[0];
};

}  // namespace qvsvr::kelvo
