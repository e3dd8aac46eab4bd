#include "nvrhost/Feeder.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <queue>

namespace nvrhost {
namespace {

constexpr int kFramesBetweenBrakes = 64;
constexpr int kBrakeMs = 1000;
constexpr std::int64_t kQueuedAhead = 1024;

std::int64_t CeilSeconds(std::int64_t microseconds) {
  return microseconds / 1'000'000 + 1;
}

}  // namespace

Feeder::Feeder(hostkit::SimHost& toHost, std::vector<Camera>& allCameras,
               const Scenario& theScenario, std::vector<TimedMessage> theMessages, int metadata)
    : host(toHost),
      cameras(allCameras),
      scenario(theScenario),
      messages(std::move(theMessages)),
      metadataBytes(metadata) {}

Feeder::~Feeder() {
  Stop();
  Join();
}

void Feeder::StartThread(std::function<void()> body) {
  {
    const std::lock_guard guard(lock);
    ++running;
  }
  threads.emplace_back([this, body = std::move(body)] {
    body();
    const std::lock_guard guard(lock);
    --running;
    changed.notify_all();
  });
}

void Feeder::StartRealtime() {
  const auto begin = std::chrono::steady_clock::now();
  for (auto& camera : cameras) {
    StartThread([this, &camera, begin] { RunCamera(camera, begin); });
  }
  if (!messages.empty()) StartThread([this, begin] { RunMessages(begin); });
}

void Feeder::StartAtFullSpeed() {
  StartThread([this] { RunAll(); });
}

bool Feeder::WaitDone(std::chrono::milliseconds timeout) {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, timeout, [this] { return running == 0; });
}

void Feeder::Stop() {
  const std::lock_guard guard(lock);
  stopped = true;
  changed.notify_all();
}

void Feeder::Join() {
  for (auto& thread : threads) {
    if (thread.joinable()) thread.join();
  }
}

double Feeder::CaptureSeconds() const {
  return static_cast<double>(captureUs.load(std::memory_order_relaxed)) / 1e6;
}

void Feeder::Give(Camera& camera, const Playhead::Due& due) {
  const auto payload = due.track->Payload(*due.frame);
  auto* const buffer = host.NewBuffer(payload.size());
  std::memcpy(buffer, payload.data(), payload.size());

  KelvoFrameHeader header{};
  header.Size = sizeof header;
  header.Version = 1;
  const std::int64_t utcMs = (scenario.startUs + due.timeUs) / 1000;
  header.Seconds = static_cast<std::uint32_t>(utcMs / 1000);
  header.Milliseconds = static_cast<std::uint16_t>(utcMs % 1000);
  header.FrameType = due.frame->type;
  header.FrameFlags = scenario.MotionAt(due.timeUs) ? KELVO_FLAG_MOTION : 0;
  if (metadataBytes > 0) {
    header.ExtensionLength = static_cast<std::uint32_t>(metadataBytes);
    std::memset(header.Extension, '.', static_cast<std::size_t>(metadataBytes));
    char text[sizeof header.Extension];
    const int length = std::snprintf(text, sizeof text, "%s t=%lld", camera.name.c_str(),
                                     static_cast<long long>(utcMs));
    std::memcpy(header.Extension, text,
                static_cast<std::size_t>(
                    std::clamp(length, 0, std::min(metadataBytes, int{sizeof text} - 1))));
  }

  const bool isAudio = due.frame->type == KELVO_FRAME_AUDIO;
  const std::uint32_t provider = isAudio ? camera.audioProvider : camera.videoProvider;
  const bool accepted =
      host.WriteFrame(provider, header, buffer, static_cast<std::uint32_t>(payload.size()));
  if (!accepted) {
    ++camera.refused;
  } else if (camera.keepsLedger) {
    camera.ledger.push_back(EntryOfGiven(provider, header, payload));
  }
  ++camera.given[due.frame->type];
  frames.fetch_add(1, std::memory_order_relaxed);
  bytes.fetch_add(payload.size(), std::memory_order_relaxed);
  captureUs.store(due.timeUs, std::memory_order_relaxed);
}

void Feeder::Send(const TimedMessage& message) {
  host.WriteXml(message.writeClass, message.xml);
}

bool Feeder::SleepUntil(SteadyTime moment) {
  std::unique_lock guard(lock);
  return !changed.wait_until(guard, moment, [this] { return stopped; });
}

void Feeder::RunCamera(Camera& camera, SteadyTime begin) {
  for (Playhead head(*camera.clip, camera.offsetUs);; head.Advance()) {
    const auto due = head.Next();
    if (due.timeUs >= scenario.durationUs) return;
    if (!SleepUntil(begin + std::chrono::microseconds(due.timeUs))) return;
    Give(camera, due);
  }
}

void Feeder::RunMessages(SteadyTime begin) {
  for (const auto& message : messages) {
    if (message.timeUs >= scenario.durationUs) return;
    if (!SleepUntil(begin + std::chrono::microseconds(message.timeUs))) return;
    Send(message);
  }
}

std::int64_t Feeder::BuffersInFlight() const {
  std::int64_t buffers = kQueuedAhead;
  for (const auto& camera : cameras) {
    for (const auto* track : {&camera.clip->video, &camera.clip->audio}) {
      if (track->Empty()) continue;
      const std::int64_t perSecond =
          static_cast<std::int64_t>(track->frames.size()) / CeilSeconds(track->durationUs) + 1;
      // What waits for an alarm or for its group's end, with room for rounding.
      const std::int64_t seconds =
          2 + scenario.preAlarmSeconds + 2 * CeilSeconds(camera.clip->video.LongestGroupUs());
      buffers += 2 * perSecond * seconds;
    }
  }
  return buffers;
}

void Feeder::RunAll() {
  struct Turn {
    std::int64_t timeUs;
    std::size_t camera;
    bool operator>(const Turn& other) const {
      return timeUs != other.timeUs ? timeUs > other.timeUs : camera > other.camera;
    }
  };
  std::vector<Playhead> heads;
  std::priority_queue<Turn, std::vector<Turn>, std::greater<>> turns;
  for (std::size_t index = 0; index < cameras.size(); ++index) {
    heads.emplace_back(*cameras[index].clip, cameras[index].offsetUs);
    turns.push({heads[index].Next().timeUs, index});
  }

  std::int64_t limit = BuffersInFlight();
  auto message = messages.begin();
  for (int sinceBrake = 0; !turns.empty();) {
    const Turn turn = turns.top();
    if (turn.timeUs >= scenario.durationUs) return;
    for (; message != messages.end() && message->timeUs <= turn.timeUs; ++message) Send(*message);
    turns.pop();
    Give(cameras[turn.camera], heads[turn.camera].Next());
    heads[turn.camera].Advance();
    turns.push({heads[turn.camera].Next().timeUs, turn.camera});

    if (++sinceBrake < kFramesBetweenBrakes) continue;
    sinceBrake = 0;
    {
      const std::lock_guard guard(lock);
      if (stopped) return;
    }
    // The plug-in may keep more than was reckoned with, and then only lets go when more frames
    // come.
    if (!host.WaitOutstanding(limit, kBrakeMs)) limit += kQueuedAhead;
  }
}

}  // namespace nvrhost
