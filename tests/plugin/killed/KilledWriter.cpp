// Records four cameras through the plug-in as fast as it can, until it is killed. Arguments:
// module, ledger file and, for a module with seams, the number of the media file call before which
// it kills itself and the name of the drive. Without seams the drive is drives/a in the current
// directory. Prints one byte for each buffer released.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "hostkit/ConfigXml.h"
#include "hostkit/SimHost.h"
#include "tests/plugin/killed/LedgerFrames.h"
#include "tests/plugin/seams/TestPlatform.h"
#include "tests/support/TestBundle.h"

namespace {

using namespace killedwriter;

class Ledger {
 public:
  explicit Ledger(const char* path) : file(std::fopen(path, "ab")) {
    if (file == nullptr) std::abort();
    std::setvbuf(file, nullptr, _IONBF, 0);  // each entry outlives the process
  }
  ~Ledger() { std::fclose(file); }
  Ledger(const Ledger&) = delete;
  Ledger& operator=(const Ledger&) = delete;

  void Note(bool released, std::uint8_t camera, std::uint32_t number) {
    const LedgerEntry entry{released ? std::uint8_t{1} : std::uint8_t{0}, camera, 0, number};
    std::lock_guard guard(lock);
    std::fwrite(&entry, sizeof entry, 1, file);
  }

 private:
  std::FILE* file;
  std::mutex lock;
};

void GiveFrame(hostkit::SimHost& host, Ledger& ledger, int camera, std::uint32_t number) {
  const auto device = static_cast<std::uint8_t>(camera);
  const auto time = kStartMs + number * kStepMs;
  KelvoFrameHeader header{};
  header.Seconds = static_cast<std::uint32_t>(time / 1000);
  header.Milliseconds = static_cast<std::uint16_t>(time % 1000);
  header.FrameType = FrameType(number);
  const auto payload = Payload(device, number);
  ledger.Note(false, device, number);
  host.WriteFrame(kProvider | std::uint32_t{device} << 8, header, host.NewBuffer(payload),
                  static_cast<std::uint32_t>(payload.size()));
}

int Record(hostkit::SimHost& host, const char* ledgerPath) {
  Ledger ledger(ledgerPath);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  host.onLog = [](const auto&) {};
  host.onEvent = [](const auto&) {};
  host.onRelease = [&](const std::byte* payload) {
    const auto camera = static_cast<std::uint8_t>(payload[0]);
    if (camera >= kCameras) return;  // XML
    std::uint32_t number;
    std::memcpy(&number, payload + 4, sizeof number);
    ledger.Note(true, camera, number);
    std::putchar('.');
  };
  std::vector<hostkit::CameraConfig> cameras(kCameras);
  for (int n = 0; n < kCameras; ++n) cameras[static_cast<std::size_t>(n)].device = n;
  host.Load();
  host.Open();
  host.Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::FullConfiguration(cameras));
  for (std::uint32_t number = 0; number < 100'000; ++number) {
    for (int camera = 0; camera < kCameras; ++camera) GiveFrame(host, ledger, camera, number);
    host.WaitOutstanding(200);
  }
  return 3;  // nobody killed it
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) return 2;
  qv::kelvo::TestBundle bundle;
  hostkit::SimHost host(arguments[1]);
  if (count > 4) {
    const auto last = std::strtoul(arguments[3], nullptr, 10);
    bundle.clock.SetNow(kStartMs);
    bundle.drives.Add(std::string(arguments[4]));
    std::size_t calls = 0;
    bundle.files.before = [calls, last](qv::kelvo::FileCall, const std::string&) mutable {
      if (++calls == last) std::raise(SIGKILL);
    };
    reinterpret_cast<KelvoTestPlatformFunction>(host.Symbol("KelvoTestPlatform"))(&bundle.platform);
  }
  return Record(host, arguments[2]);
}
