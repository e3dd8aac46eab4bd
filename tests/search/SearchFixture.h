#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cstring>
#include <deque>
#include <string>
#include <tuple>
#include <vector>

#include "hostkit/SearchXml.h"
#include "search/Search.h"
#include "tests/support/FakeHost.h"
#include "tests/support/Recordings.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"
#include "tree/RecordPath.h"

namespace qvsvr::kelvo {

using qv::kelvo::StreamID;
using qv::kelvo::UtcMs;

inline constexpr UtcMs kStart = 1'750'000'000'000;  // 2025-06-15 15:06:40 UTC
inline constexpr std::int64_t kSecond0 = kStart / 1000;
inline constexpr StreamID kDevice = 0x001100FF;  // a file of the whole device 0

// One frame of a recording; it counts its content itself: the time and the stream as text.
struct Shot {
  std::uint16_t stream = 0, type = 1;
  UtcMs time = 0;
  std::uint8_t flags = 0;
  std::size_t padding = 0;  // bytes

  [[nodiscard]] std::string Payload() const {
    return std::to_string(time) + "/" + std::to_string(stream) + std::string(padding, '.');
  }
  [[nodiscard]] std::int64_t Second() const { return time / 1000; }
};

// Volumes and archives by hand.
struct TestFileSystem : qv::kelvo::FileSystemBase {
  explicit TestFileSystem(qv::kelvo::Platform& system) : FileSystemBase(system) {}
  void GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                  const qv::kelvo::ArchiveFilter* filter) override {
    lastFilter = filter == nullptr ? qv::kelvo::ArchiveFilter{} : *filter;
    list.clear();
    if ((flags & qv::kelvo::kVolumesLocal) != 0) list = volumes;
  }
  void GetTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                  const qv::kelvo::ArchiveFilter*) override {
    list = (flags & qv::kelvo::kVolumesArchive) != 0 ? targets : qv::kelvo::TargetList{};
  }
  std::vector<std::string> volumes;
  qv::kelvo::TargetList targets;
  qv::kelvo::ArchiveFilter lastFilter;
};

// A device with 16 video and 16 audio streams on encoder 0, channel = number of the stream.
class SearchTest : public testing::Test {
 protected:
  struct Event {
    char kind;  // P progress or end, R result, F frame, E frame without content
    KelvoHostRequest request;
    std::string payload;  // elementary payload of a frame; text of a result
  };

  SearchTest() {
    files.volumes = {tree.MakeDirectory("a"), tree.MakeDirectory("b")};
    host.onOther = [this](const KelvoHostRequest& request, KelvoHostReply& reply) {
      return Hear(request, reply);
    };
  }

  // Writes a recording that is named after its first frame; returns its path.
  std::string Write(std::vector<Shot> shots, StreamID id = kDevice, std::size_t volume = 0,
                    bool inOrderOfTime = true) {
    if (inOrderOfTime) std::ranges::stable_sort(shots, {}, &Shot::time);
    std::string path = qv::kelvo::MakePath(files.volumes[volume], shots.front().time, id,
                                           qv::kelvo::CreateDirectories::Yes);
    std::deque<std::string> payloads;
    std::vector<qv::kelvo::PSFrame> frames;
    for (const Shot& shot : shots) {
      frames.push_back(qv::kelvo::MakeFrame(shot.stream, shot.type, shot.time,
                                            payloads.emplace_back(shot.Payload())));
      frames.back().flags = shot.flags;
    }
    qv::kelvo::PSFile file(qv::kelvo::SystemPlatform().mediaFiles, &tables);
    qv::kelvo::WriteRecording(file, path, static_cast<std::uint8_t>(id), qv::kelvo::AllStreams(),
                              frames);
    return path;
  }

  // Frames of one stream, `stepMs` apart, by the letters of their types.
  static std::vector<Shot> Shots(UtcMs start, std::int64_t stepMs, const std::string& types,
                                 std::uint16_t stream = 0) {
    std::vector<Shot> shots;
    for (const char type : types) {
      const auto number = static_cast<std::uint16_t>(std::string("AIPB").find(type));
      shots.push_back({stream, number, start, 0});
      start += stepMs;
    }
    return shots;
  }
  static std::string Repeat(int count, const std::string& text) {
    std::string all;
    for (int n = 0; n < count; ++n) all += text;
    return all;
  }

  static hostkit::SearchInput Video(int number, const std::vector<std::int64_t>& moments = {},
                                    int device = 0) {
    return {.device = device, .number = number, .moments = moments};
  }
  static std::string Request(int type, std::int64_t start, std::int64_t end, int resolution,
                             const std::vector<hostkit::SearchInput>& inputs) {
    return hostkit::RequestXml({type, start, end, resolution, true, inputs});
  }

  // Runs the search; afterwards no file is open. Nothing is known of recordings unless by `known`.
  void Run(const std::string& xml, std::uint32_t requestId = 7,
           qv::kelvo::RunTables* known = nullptr) {
    events.clear();
    SearchTargetFileSystem target(files, bundle.platform, known);
    EXPECT_EQ(Search(xml, requestId, target, core), 0u);
    EXPECT_EQ(bundle.files.OpenFiles(), 0u);
  }

  [[nodiscard]] std::string Order() const {
    std::string order;
    for (const Event& event : events) order += event.kind;
    return order;
  }
  // The content of the frames that came, in order.
  [[nodiscard]] std::vector<std::string> Played() const {
    std::vector<std::string> played;
    for (const Event& event : events) {
      if (event.kind == 'F') played.push_back(event.payload);
    }
    return played;
  }
  [[nodiscard]] std::string ResultText() const {
    for (const Event& event : events) {
      if (event.kind == 'R') return event.payload;
    }
    return {};
  }

  FakeHost host;
  qv::kelvo::TempTree tree;
  qv::kelvo::TestBundle bundle;
  FakeCore core{bundle.clock};
  TestFileSystem files{bundle.platform};
  qv::kelvo::RunTables tables;  // of all that was written
  std::vector<Event> events;
  // Answers an event by its number from 0; the status of the reply.
  std::function<std::uint32_t(std::size_t number, char kind)> answer;
  std::uint32_t returned = 0;  // by the host function, when `answer` isn't 0

 private:
  std::uint32_t Hear(const KelvoHostRequest& request, KelvoHostReply& reply) {
    EXPECT_EQ(request.Class, KELVO_CLASS_SEARCH);
    std::string bytes(static_cast<const char*>(request.Payload), request.Length);
    char kind = 'P';
    if (request.SubCode == KELVO_SUB_SEARCH_RESULT) kind = 'R';
    if (request.SubCode == KELVO_SUB_SEARCH_FRAME) {
      kind = bytes.empty() ? 'E' : 'F';
      bytes = bytes.substr(std::min<std::size_t>(bytes.size(), request.u.Header.PayloadOffset));
    }
    reply.Status = answer ? answer(events.size(), kind) : 0;
    events.push_back({kind, request, bytes});
    return reply.Status != 0 ? returned : 0;
  }
};

}  // namespace qvsvr::kelvo
