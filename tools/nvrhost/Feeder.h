#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "hostkit/SimHost.h"
#include "nvrhost/Clip.h"
#include "nvrhost/Ledger.h"
#include "nvrhost/Scenario.h"

namespace nvrhost {

// One camera at work. The feeder counts in it; read it after Join.
struct Camera {
  std::string name;
  std::uint32_t videoProvider = 0;
  std::uint32_t audioProvider = 0;
  std::shared_ptr<const Clip> clip;
  std::int64_t offsetUs = 0;  // of its first frame from the start: cameras aren't in step

  std::array<std::uint64_t, 4> given{};  // by frame type
  std::uint64_t refused = 0;             // not accepted by the plug-in
  bool keepsLedger = false;
  std::vector<LedgerEntry> ledger;  // of the accepted ones
};

// Gives the frames of all cameras and the messages of a scenario to the plug-in: in real time with
// a thread for each camera, or from one thread as fast as the plug-in takes them.
class Feeder {
 public:
  // `metadataBytes` of text go with each frame. The host, the cameras and the scenario must outlive
  // the feeder.
  Feeder(hostkit::SimHost& host, std::vector<Camera>& cameras, const Scenario& scenario,
         std::vector<TimedMessage> messages, int metadataBytes);
  ~Feeder();
  Feeder(const Feeder&) = delete;
  Feeder& operator=(const Feeder&) = delete;

  void StartRealtime();
  void StartAtFullSpeed();
  // Waits until everything is given, at most so long; returns whether it is.
  bool WaitDone(std::chrono::milliseconds timeout);
  // Gives no further frame.
  void Stop();
  void Join();

  // While it runs: frames and payload bytes given, and how far the capture clock is.
  [[nodiscard]] std::uint64_t Frames() const { return frames.load(std::memory_order_relaxed); }
  [[nodiscard]] std::uint64_t Bytes() const { return bytes.load(std::memory_order_relaxed); }
  [[nodiscard]] double CaptureSeconds() const;

 private:
  using SteadyTime = std::chrono::steady_clock::time_point;

  void Give(Camera& camera, const Playhead::Due& due);
  void Send(const TimedMessage& message);
  // False if the feeder was stopped meanwhile.
  bool SleepUntil(SteadyTime moment);
  void RunCamera(Camera& camera, SteadyTime begin);
  void RunMessages(SteadyTime begin);
  void RunAll();
  // Buffers that the plug-in may hold with a good reason before the generator waits for it.
  [[nodiscard]] std::int64_t BuffersInFlight() const;
  void StartThread(std::function<void()> body);

  hostkit::SimHost& host;
  std::vector<Camera>& cameras;
  const Scenario& scenario;
  const std::vector<TimedMessage> messages;
  const int metadataBytes;

  std::atomic<std::uint64_t> frames{0};
  std::atomic<std::uint64_t> bytes{0};
  std::atomic<std::int64_t> captureUs{0};
  std::mutex lock;
  std::condition_variable changed;
  bool stopped = false;
  int running = 0;
  std::vector<std::thread> threads;
};

}  // namespace nvrhost
