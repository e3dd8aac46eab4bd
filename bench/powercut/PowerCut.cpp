// The programs of run.sh: a recorder that never gets to its end, the moment of a power cut, and a
// look at what a disk held then.

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "hostkit/ConfigXml.h"
#include "hostkit/SearchXml.h"
#include "hostkit/SimHost.h"

namespace {

using hostkit::SimHost;

constexpr std::uint32_t kCameras = 8, kMostFrames = 60'000;
constexpr std::int64_t kFrameMs = 40, kBetweenStartsMs = 37'000, kLossMs = 10'000;

// What outlives a power cut: when each frame was given and when it had been recorded.
struct Ledger {
  std::atomic<std::int64_t> startMs;
  std::atomic<int> sentDays, savedDays;  // a setting, as the host sent it and as it was confirmed
  std::array<std::atomic<std::uint32_t>, kCameras> given;
  std::array<std::array<std::atomic<std::int64_t>, kMostFrames>, kCameras> givenMs, recordedMs;
};

std::int64_t NowMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

Ledger& Map(const char* path) {
  const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0 || ftruncate(fd, sizeof(Ledger)) != 0) throw std::runtime_error(path);
  void* const memory = mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  if (memory == MAP_FAILED) throw std::runtime_error("no ledger");
  return *static_cast<Ledger*>(memory);
}

hostkit::CameraConfig Camera(std::uint32_t number) {
  hostkit::CameraConfig camera;
  camera.device = static_cast<int>(number);
  camera.running = true;  // a new configuration leaves its file open
  return camera;
}

// A camera's n-th frame; both numbers stand in front.
std::string Payload(std::uint32_t camera, std::uint32_t n) {
  std::string payload(n % 25 == 0 ? 18'000 + n % 999 : 800 + n % 1777, '\0');
  std::uint32_t value = n * 2654435761u + camera;
  for (char& c : payload) {
    value = value * 1664525u + 1013904223u;
    c = static_cast<char>(value >> 24);
  }
  std::memcpy(payload.data(), &camera, sizeof camera);
  std::memcpy(&payload[4], &n, sizeof n);
  return payload;
}

int DaysIn(const std::string& xml) {
  const auto at = xml.find("Days=\"");
  return at == std::string::npos ? -1 : std::atoi(xml.c_str() + at + 6);
}

void SaveSettings(SimHost& host, Ledger& ledger) {
  const int days = ++ledger.sentDays;
  host.Ioctl(KELVO_IOCTL_CONFIGURATION,
             "<qDVR Delta='1'><Storage ID='327680'><Expiration Type='1' Days='" +
                 std::to_string(days) + "'/></Storage></qDVR>");
}

void GiveFrame(SimHost& host, Ledger& ledger, std::uint32_t camera) {
  const std::uint32_t n = ledger.given[camera];
  const std::int64_t now = NowMs();
  KelvoFrameHeader header{};
  header.Size = sizeof header;
  header.Version = 1;
  header.Seconds = static_cast<std::uint32_t>(now / 1000);
  header.Milliseconds = static_cast<std::uint16_t>(now % 1000);
  header.FrameType = n % 25 == 0 ? KELVO_FRAME_I : KELVO_FRAME_P;
  const std::string payload = Payload(camera, n);
  ledger.givenMs[camera][n] = now;
  ++ledger.given[camera];
  host.WriteFrame(hostkit::VideoProvider(Camera(camera)), header, host.NewBuffer(payload),
                  static_cast<std::uint32_t>(payload.size()));
}

// Records until it is killed, one camera after the other, so that files begin and end at any time.
[[noreturn]] void Record(const char* module, Ledger& ledger) {
  SimHost host(module);
  host.onLog = [](const auto& line) {
    if (line.level >= 50) std::fprintf(stderr, "%s\n", line.text.c_str());
  };
  host.onEvent = [&ledger](const SimHost::Event& event) {
    const int days = DaysIn(event.text);
    if (event.eventClass == KELVO_CLASS_BROADCAST && days > 0) ledger.savedDays = days;
  };
  host.onRelease = [&ledger](const std::byte* payload) {
    std::uint32_t about[2];
    std::memcpy(about, payload, sizeof about);
    if (about[0] < kCameras && about[1] < kMostFrames) {
      ledger.recordedMs[about[0]][about[1]] = NowMs();
    }
  };
  host.Load();
  host.Open();
  ledger.startMs = NowMs();
  std::vector<hostkit::CameraConfig> cameras;
  auto due = std::chrono::steady_clock::now();
  for (std::int64_t tick = 0;; ++tick) {
    std::this_thread::sleep_until(due += std::chrono::milliseconds(kFrameMs));
    if (cameras.size() < kCameras &&
        tick * kFrameMs >= static_cast<std::int64_t>(cameras.size()) * kBetweenStartsMs) {
      cameras.push_back(Camera(static_cast<std::uint32_t>(cameras.size())));
      host.Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::FullConfiguration(cameras));
    }
    for (std::uint32_t camera = 0; camera < cameras.size(); ++camera) {
      GiveFrame(host, ledger, camera);
    }
    if (tick % 17 == 0) SaveSettings(host, ledger);
  }
}

// Copies the disk's image as it is at one moment, and writes what had been told until then.
void Cut(Ledger& ledger, const char* image, const char* copy, const char* about) {
  const int from = open(image, O_RDONLY | O_CLOEXEC);
  const int to = open(copy, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const int saved = ledger.savedDays;
  const std::int64_t moment = NowMs();
  if (from < 0 || to < 0 || ioctl(to, FICLONE, from) != 0) {
    throw std::runtime_error("the image can't be cloned");
  }
  std::ofstream(about) << moment << ' ' << saved << ' ' << ledger.sentDays + 1 << '\n';
}

struct Seen {
  std::array<std::vector<bool>, kCameras> found;
  std::uint64_t wrong = 0, frames = 0, failures = 0;
};

void Hear(const KelvoHostRequest& request, const Ledger& ledger, Seen& seen) {
  if (request.SubCode != KELVO_SUB_SEARCH_FRAME) return;
  const std::uint32_t offset = request.u.Header.PayloadOffset;
  if (request.Length < offset + 8) {
    ++seen.failures;  // tells that the rest of a file can't be read
    return;
  }
  const std::string payload(static_cast<const char*>(request.Payload) + offset,
                            request.Length - offset);
  std::uint32_t about[2];
  std::memcpy(about, payload.data(), sizeof about);
  const std::int64_t time =
      std::int64_t{request.u.Header.Seconds} * 1000 + request.u.Header.Milliseconds;
  if (about[0] >= kCameras || about[1] >= ledger.given[about[0]] ||
      payload != Payload(about[0], about[1]) || time != ledger.givenMs[about[0]][about[1]]) {
    ++seen.wrong;
    return;
  }
  ++seen.frames;
  auto& found = seen.found[about[0]];
  if (found.size() <= about[1]) found.resize(about[1] + 1);
  found[about[1]] = true;
}

// Starts the plug-in on the disk's copy, lets it heal, plays everything and compares. Prints one
// line; whether all is as promised.
bool Check(const char* module, const Ledger& ledger, const char* about) {
  std::int64_t moment = 0;
  int savedDays = 0, sentDays = 0;
  std::ifstream(about) >> moment >> savedDays >> sentDays;
  Seen seen;
  std::atomic<int> days{-1}, healed{0};
  SimHost host(module);
  std::mutex lock;
  std::condition_variable told;
  bool done = false;
  host.onLog = [&](const auto& line) {
    healed += line.text.find("has a new index") != std::string::npos;
    if (line.text.find("recordings looked at") == std::string::npos) return;
    const std::lock_guard guard(lock);
    done = true;
    told.notify_one();
  };
  host.onEvent = [&](const SimHost::Event& event) {
    if (event.eventClass == KELVO_CLASS_BROADCAST) days = std::max(days.load(), DaysIn(event.text));
  };
  host.onSearch = [&](const KelvoHostRequest& request) {
    Hear(request, ledger, seen);
    return 0u;
  };
  host.Load();
  host.Open();
  {
    std::unique_lock guard(lock);
    told.wait_for(guard, std::chrono::seconds(20), [&] { return done; });
  }
  hostkit::SearchRequest request;
  request.type = 1;
  request.start = ledger.startMs / 1000 - 5;
  request.end = moment / 1000 + 5;
  for (std::uint32_t camera = 0; camera < kCameras; ++camera) {
    request.inputs.emplace_back().device = static_cast<int>(camera);
  }
  host.Read(hostkit::RequestXml(request), 1);
  host.Close();
  host.Unload();

  std::uint64_t missing = 0;
  std::int64_t lostMs = 0;
  for (std::uint32_t camera = 0; camera < kCameras; ++camera) {
    auto& found = seen.found[camera];
    found.resize(kMostFrames);
    for (std::uint32_t n = 0; n < ledger.given[camera]; ++n) {
      const std::int64_t recorded = ledger.recordedMs[camera][n];
      if (found[n] || recorded == 0 || recorded > moment) continue;
      lostMs = std::max(lostMs, moment - recorded);
      missing += recorded < moment - kLossMs;
    }
  }
  const bool settingsGood = savedDays == 0 || (days >= savedDays && days <= sentDays);
  const bool good = done && missing == 0 && seen.wrong == 0 && settingsGood;
  std::printf(
      "%s frames:%llu lost:%.2fs missing:%llu wrong:%llu unread:%llu healed:%d days:%d/%d-%d\n",
      good ? "good" : "BAD", static_cast<unsigned long long>(seen.frames),
      static_cast<double>(lostMs) / 1000, static_cast<unsigned long long>(missing),
      static_cast<unsigned long long>(seen.wrong), static_cast<unsigned long long>(seen.failures),
      healed.load(), days.load(), savedDays, sentDays);
  return good;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string verb = argc > 1 ? argv[1] : "";
    if (verb == "record" && argc == 4) Record(argv[2], Map(argv[3]));
    if (verb == "cut" && argc == 6) {
      Cut(Map(argv[2]), argv[3], argv[4], argv[5]);
      return 0;
    }
    if (verb == "check" && argc == 5) return Check(argv[2], Map(argv[3]), argv[4]) ? 0 : 1;
    std::fprintf(stderr, "run.sh tells how this is used\n");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kelvo_powercut: %s\n", error.what());
  }
  return 2;
}
