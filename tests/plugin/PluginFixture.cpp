#include "tests/plugin/PluginFixture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tests/plugin/seams/TestPlatform.h"

namespace plugintest {

namespace fs = boost::filesystem;

Frame MakeFrame(std::uint32_t provider, std::uint8_t type, std::int64_t timeMs, std::size_t size,
                std::uint32_t seed) {
  Frame frame;
  frame.provider = provider;
  frame.header.Size = sizeof(KelvoFrameHeader);
  frame.header.Version = 1;
  frame.header.Seconds = static_cast<std::uint32_t>(timeMs / 1000);
  frame.header.Milliseconds = static_cast<std::uint16_t>(timeMs % 1000);
  frame.header.FrameType = type;
  frame.payload.resize(size);
  std::uint32_t value = seed * 2654435761u + provider;
  for (auto& c : frame.payload) {
    value = value * 1664525u + 1013904223u;
    c = static_cast<char>(value >> 24);
  }
  return frame;
}

std::vector<Frame> MakeFrames(std::uint32_t provider, std::int64_t startMs, std::int64_t stepMs,
                              const std::string& kinds, std::size_t size) {
  static const std::string letters = "AIPB";
  std::vector<Frame> frames;
  for (std::size_t n = 0; n < kinds.size(); ++n) {
    const auto type = static_cast<std::uint8_t>(letters.find(kinds[n]));
    const auto number = static_cast<std::uint32_t>(n);
    frames.push_back(MakeFrame(provider, type, startMs + static_cast<std::int64_t>(n) * stepMs,
                               size + n % 64, number + 1));
  }
  return frames;
}

std::string Times(int count, const std::string& text) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

testsupport::Bytes KeptMetadata(const KelvoFrameHeader& header) {
  const std::size_t given = std::min<std::size_t>(header.ExtensionLength & 0xFF, 87);
  testsupport::Bytes kept(header.Extension, header.Extension + given / 3 * 3);
  for (std::size_t i = 2; i < kept.size(); i += 3) kept[i] &= 0xFC;
  return kept;
}

std::int64_t TimeOf(const Frame& frame) {
  return std::int64_t{frame.header.Seconds} * 1000 + frame.header.Milliseconds;
}

void ExpectFrames(const std::vector<const PsFrame*>& found, std::span<const Frame> given) {
  ASSERT_EQ(found.size(), given.size());
  for (std::size_t n = 0; n < given.size(); ++n) {
    SCOPED_TRACE("frame " + std::to_string(n));
    const auto& header = given[n].header;
    EXPECT_EQ(found[n]->type, header.FrameType);
    EXPECT_EQ(found[n]->flags, header.FrameFlags & 0xE0u);
    EXPECT_EQ(found[n]->timeMs, TimeOf(given[n]));
    EXPECT_EQ(found[n]->userData, KeptMetadata(header));
    ASSERT_TRUE(
        std::equal(found[n]->payload.begin(), found[n]->payload.end(), given[n].payload.begin(),
                   given[n].payload.end(),
                   [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); }))
        << "payloads differ";
  }
}

namespace {

std::string EmptyTestDrive() {
  const char* name = std::getenv("KELVO_TEST_DRIVE");
  if (name == nullptr) throw std::runtime_error("KELVO_TEST_DRIVE must name a drive for tests");
  boost::system::error_code kept;  // what the system has at the root of a real drive
  for (const auto& entry : fs::directory_iterator(name)) fs::remove_all(entry.path(), kept);
  return name;
}

}  // namespace

std::string ModulePath(const std::string& built) {
  const char* folder = std::getenv("KELVO_MODULES");
  return folder == nullptr ? built : (fs::path(folder) / fs::path(built).filename()).string();
}

PluginTest::PluginTest(const std::string& module)
    : recordedBelow(module == KELVO_PLUGIN && qv::kelvo::kPathSeparator == '\\'
                        ? EmptyTestDrive()
                        : tree.Path("drives")),
      before(fs::current_path()) {
  tree.MakeDirectory("drives/a");
  fs::current_path(tree.Root());
  host = std::make_unique<SimHost>(ModulePath(module));
  host->SetQuarantine(true);
}

PluginTest::~PluginTest() {
  host.reset();
  fs::current_path(before);
}

void PluginTest::TearDown() {
  Stop();
  EXPECT_EQ(host->Outstanding(), 0);
  EXPECT_EQ(host->BadReleases(), 0);
}

void PluginTest::Start() {
  host->Load();
  host->Open();
}

void PluginTest::Start(const std::vector<CameraConfig>& cameras, int preAlarmSeconds) {
  Start();
  Configure(cameras, preAlarmSeconds);
}

void PluginTest::Stop() {
  host->Close();
  host->Unload();
}

void PluginTest::Finish() {
  Sync();
  Stop();
}

void PluginTest::Tell(const std::string& xml) {
  ASSERT_TRUE(host->Ioctl(KELVO_IOCTL_CONFIGURATION, xml));
  Sync();
}

bool PluginTest::Give(const Frame& frame, std::uint32_t subCode) {
  return host->WriteFrame(frame.provider, frame.header, host->NewBuffer(frame.payload),
                          static_cast<std::uint32_t>(frame.payload.size()), subCode);
}

void PluginTest::GiveAll(std::span<const Frame> frames) {
  for (const auto& frame : frames) ASSERT_TRUE(Give(frame));
}

// A message's buffer is released before the work that follows the message, so it takes a second
// one to know that this is over.
void PluginTest::Sync() {
  for (int i = 0; i < 2; ++i) {
    KelvoWriteBlock block{};
    KelvoWriteReply reply{};
    block.Payload = host->NewBuffer("<qDVR/>");
    block.Length = 7;
    host->Raw().Write(&block, &reply);
    ASSERT_EQ(reply.Accepted, 1u);
    ASSERT_TRUE(host->WaitReleased(block.Payload));
  }
}

std::vector<SimHost::Event> PluginTest::EventsWith(const std::string& text) {
  auto events = host->Events();
  std::erase_if(events, [&](const auto& event) { return event.text.find(text) == text.npos; });
  return events;
}

std::vector<PsRecording> PluginTest::Recordings(const std::string& text, PsEnd end) {
  std::vector<PsRecording> found;
  const fs::path root(recordedBelow);
  if (!fs::exists(root)) return found;
  for (const auto& file : qv::kelvo::FilesBelow(recordedBelow, ".ps")) {
    if (file.find(text) == std::string::npos) continue;
    found.push_back(testsupport::ReadPs((root / file).make_preferred().string(), end));
    for (const auto& fault : found.back().faults) ADD_FAILURE() << file << ": " << fault;
  }
  for (const auto& file : qv::kelvo::FilesBelow(recordedBelow, ".psi")) {
    EXPECT_TRUE(fs::exists(root / file.substr(0, file.size() - 1))) << file << " is alone";
  }
  return found;
}

void PluginTest::ExpectRecorded(const CameraConfig& camera, std::span<const Frame> given,
                                unsigned slot, PsEnd end) {
  const auto recordings = Recordings(Id(camera), end);
  ExpectFrames(FramesOf(recordings, slot), given);
}

std::vector<const PsFrame*> PluginTest::FramesOf(const std::vector<PsRecording>& recordings,
                                                 unsigned slot) {
  std::vector<const PsFrame*> frames;
  for (const auto& recording : recordings) {
    const auto part = recording.Of(slot);
    frames.insert(frames.end(), part.begin(), part.end());
  }
  return frames;
}

SeamTest::SeamTest(qv::kelvo::Drives* drives, qv::kelvo::MediaFiles* files)
    : PluginTest(KELVO_SEAMS_PLUGIN),
      platform{bundle.clock,
               drives != nullptr ? *drives : bundle.drives,
               bundle.platform.directories,
               files != nullptr ? *files : bundle.files,
               bundle.platform.durableFiles,
               bundle.platform.diskSync} {
  bundle.drives.Add(tree.MakeDirectory("drives/a"));
  reinterpret_cast<KelvoTestPlatformFunction>(host->Symbol("KelvoTestPlatform"))(&platform);
}

void SeamTest::Tick(std::int64_t milliseconds) {
  Sync();
  bundle.clock.Advance(milliseconds);
  Sync();
}

void SeamTest::GiveInTime(std::span<const Frame> frames) {
  for (const auto& frame : frames) {
    Tick(TimeOf(frame) - Now());
    ASSERT_TRUE(Give(frame));
  }
}

CameraConfig Camera(int device, int record) {
  CameraConfig camera;
  camera.device = device;
  camera.name = "Camera " + std::to_string(device);
  camera.schedule = {{0, 167, record}};
  return camera;
}

std::string Id(const CameraConfig& camera) {
  char id[16];
  std::snprintf(id, sizeof id, "-%08X", hostkit::VideoProvider(camera) | 0x80u);
  return id;
}

std::int64_t NowMs() {
  return qv::kelvo::SystemPlatform().clock.NowMs();
}

}  // namespace plugintest
