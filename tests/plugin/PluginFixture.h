#pragma once

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "hostkit/ConfigXml.h"
#include "hostkit/SimHost.h"
#include "tests/support/PsParser.h"
#include "tests/support/TempTree.h"
#include "tests/support/TestBundle.h"

namespace plugintest {

using hostkit::CameraConfig;
using hostkit::SimHost;
using testsupport::PsEnd;
using testsupport::PsFrame;
using testsupport::PsRecording;

constexpr unsigned kVideoSlot = 0, kAudioSlot = 16;
constexpr int kAlways = 2, kOnMotion = 1, kOnAlarm = 0;

// A frame as a host gives it.
struct Frame {
  std::uint32_t provider = 0;
  KelvoFrameHeader header{};
  std::string payload;
};

// `seed` makes the content: frames of different seeds differ.
Frame MakeFrame(std::uint32_t provider, std::uint8_t type, std::int64_t timeMs, std::size_t size,
                std::uint32_t seed);

// Frames of one channel, `stepMs` apart. `kinds` is one letter a frame: I, P, B or A for audio.
std::vector<Frame> MakeFrames(std::uint32_t provider, std::int64_t startMs, std::int64_t stepMs,
                              const std::string& kinds, std::size_t size = 3000);
// The same text several times.
std::string Times(int count, const std::string& text);

// The metadata that a reader gets back for these bytes.
testsupport::Bytes KeptMetadata(const KelvoFrameHeader& header);

std::int64_t TimeOf(const Frame& frame);

// Checks that a file's frames are the given ones: content, type, flags, time and metadata.
void ExpectFrames(const std::vector<const PsFrame*>& found, std::span<const Frame> given);

// Where a module lies: in the folder KELVO_MODULES, if it is set, else where it was built.
[[nodiscard]] std::string ModulePath(const std::string& built);

// Runs the plug-in in a directory of its own with one drive, drives/a; where drives are letters,
// the module without seams has the one that KELVO_TEST_DRIVE names, which is emptied. At the end it
// must have released every buffer exactly once.
class PluginTest : public ::testing::Test {
 protected:
  explicit PluginTest(const std::string& module = KELVO_PLUGIN);
  ~PluginTest() override;
  void TearDown() override;

  void Start();
  void Start(const std::vector<CameraConfig>& cameras, int preAlarmSeconds = 0);
  // Close and Unload at once: what is queued is not handled any more.
  void Stop();
  // The same after all that was given has been handled. Frames still undecided are not written.
  void Finish();
  // Tells a configuration; returns when it is in force.
  void Tell(const std::string& xml);
  void Configure(const std::vector<CameraConfig>& cameras, int preAlarmSeconds = 0) {
    Tell(hostkit::FullConfiguration(cameras, preAlarmSeconds));
  }

  // Hands a copy of the frame in; returns whether it was accepted.
  bool Give(const Frame& frame, std::uint32_t subCode = 0);
  void GiveAll(std::span<const Frame> frames);
  // Returns when everything that was given before has been handled, with the work after it.
  void Sync();

  // Gathered log lines and events that contain the text.
  int CountLog(const std::string& text) { return static_cast<int>(host->CountLines(text)); }
  int CountEvents(const std::string& text) { return static_cast<int>(EventsWith(text).size()); }
  std::vector<SimHost::Event> EventsWith(const std::string& text);

  // Pairs on the drives whose names contain the text, in the order of their names; each has been
  // checked.
  std::vector<PsRecording> Recordings(const std::string& text = "", PsEnd end = PsEnd::Closed);
  // Checks that a slot's frames in all files of a camera are the given ones.
  void ExpectRecorded(const CameraConfig& camera, std::span<const Frame> given,
                      unsigned slot = kVideoSlot, PsEnd end = PsEnd::Closed);
  // The frames of a slot one file after the other.
  static std::vector<const PsFrame*> FramesOf(const std::vector<PsRecording>& recordings,
                                              unsigned slot = kVideoSlot);

  qv::kelvo::TempTree tree;  // also the working directory
  std::unique_ptr<SimHost> host;

 private:
  const std::string recordedBelow;  // what all drives lie below
  boost::filesystem::path before;
};

// The same on a clock and on files that the test has in its hands, and on drives by table, unless
// it brings others.
class SeamTest : public PluginTest {
 protected:
  explicit SeamTest(qv::kelvo::Drives* drives = nullptr, qv::kelvo::MediaFiles* files = nullptr);
  // Moves the time on, after all that was given has been handled, and lets the plug-in see it.
  void Tick(std::int64_t milliseconds);
  // Gives frames at the moments they are stamped with, the clock following them, frame by frame.
  void GiveInTime(std::span<const Frame> frames);
  [[nodiscard]] std::int64_t Now() { return bundle.clock.NowMs(); }

  qv::kelvo::TestBundle bundle;
  qv::kelvo::Platform platform;
};

// A camera that records always, with device number `device`.
CameraConfig Camera(int device = 0, int record = kAlways);

// What the names of its files contain.
std::string Id(const CameraConfig& camera);

// Milliseconds since 1970 UTC by the system's clock.
std::int64_t NowMs();

}  // namespace plugintest
