#include "record/CRecordMgr.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <string_view>

#include "host/Log.h"
#include "kelvo/host_abi.h"
#include "record/BufferReference.h"
#include "record/FrameIntake.h"
#include "record/ReservationMessages.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::int64_t kNsPerMicrosecond = 1000;
constexpr std::int64_t kStatsPeriodNs = 60'000'000'000;
constexpr std::int64_t kSweepPeriodNs = 3'600'000'000'000;
constexpr std::int64_t kSweepRetryNs = 300'000'000'000;  // also the wait for the first sweep
constexpr double kMegabitsPerBit = 1.0 / (1 << 20);

// Waking a sleeping thread costs the host several microseconds. So while frames come in, the worker
// dozes instead of sleeping: it looks at the queue by itself, and a frame wakes it only when many
// have gathered. Other messages always wake it. With no frame for a second it sleeps.
constexpr std::chrono::nanoseconds kDoze = std::chrono::milliseconds(10);
constexpr std::chrono::nanoseconds kSleep = std::chrono::minutes(1);
constexpr int kDozesToSleep = 100;
constexpr std::size_t kDozingLimit = 64;

bool IsFrame(const RecordMessage& message) {
  return message.Type == 0 && (message.Class & KELVO_WRITE_FRAME) != 0;
}

// Runs one step; what it throws ends here, since nothing may end the worker.
template <typename Step>
void Guarded(const char* what, Step step) noexcept {
  try {
    step();
  } catch (const std::exception& error) {
    LogPrintf(LogError, "%s failed: %s", what, error.what());
  } catch (...) {
    LogPrintf(LogError, "%s failed: unknown exception", what);
  }
}

void NoteTime(std::int64_t elapsedNs, std::uint64_t& current, std::uint64_t& least,
              std::uint64_t& most) {
  current = static_cast<std::uint64_t>(elapsedNs / kNsPerMicrosecond);
  least = std::min(least, current);
  most = std::max(most, current);
}

}  // namespace

CRecordMgr::CRecordMgr(CFileSystem& fileSystem, ICoreEventer& core, qv::kelvo::Platform& platform)
    : FileSystem(fileSystem),
      Core(core),
      Platform(platform),
      Alarms(core),
      Services{core, fileSystem, *this, platform, Alarms, Reservations, Stats()},
      Config{Services, Streams, PreAlarmSeconds, Ptz},
      SweepDueNs(platform.clock.SteadyNs() + kSweepRetryNs) {}

CRecordMgr::~CRecordMgr() {
  RequestStop();
  if (Worker.joinable()) Worker.join();
  for (const auto& stream : Streams.All()) {
    Guarded("closing a file", [&] { stream->CloseFile(); });
  }
  while (!Streams.All().empty()) Streams.Remove(Streams.All().back().get());
  while (!Queue.Empty()) {
    const BufferReference left(Core, Queue.Pop().Payload);
  }
}

bool CRecordMgr::Enqueue(const RecordMessage& message) {
  if (Stopping.load(std::memory_order_relaxed)) return false;
  bool wake = true;
  {
    const std::lock_guard guard(QueueLock);
    Queue.Push(message);
    wake = !Dozing || !IsFrame(message) || Queue.Size() == kDozingLimit;
  }
  // After the lock, so that the woken worker finds it free.
  if (wake) QueueSignal.notify_one();
  return true;
}

void CRecordMgr::Start() {
  if (Worker.joinable()) throw std::logic_error("the record worker is already running");
  Worker = std::thread(&CRecordMgr::Run, this);
}

void CRecordMgr::RequestStop() {
  Stopping.store(true);
  // A worker that has just found the flag clear holds the lock until it waits: passing through the
  // lock makes sure that the signal comes after that.
  { const std::lock_guard guard(QueueLock); }
  QueueSignal.notify_all();
}

void CRecordMgr::Run() {
  LogPrintf(LogTrace, "KELVO - RecordMgr worker - running");
  StatsStartNs = Platform.clock.SteadyNs();
  SweepDueNs = StatsStartNs + kSweepRetryNs;
  Guarded("reporting the status", [this] { FileSystem.ReportStatus(true); });
  RecordMessage message;
  std::int64_t sinceStatsNs = 0;
  while (Next(message, sinceStatsNs)) Process(message, sinceStatsNs);
  Guarded("stopping the sweeper", [this] { FileSystem.KickSweeper(true); });
}

bool CRecordMgr::Next(RecordMessage& message, std::int64_t& sinceStatsNs) {
  MessageQueue::SpareBlocks surplus;  // freed after the lock is
  std::unique_lock lock(QueueLock);
  while (!Stopping.load() && Queue.Empty()) {
    Dozing = IdleDozes < kDozesToSleep;
    if (Dozing) ++IdleDozes;
    QueueSignal.wait_for(lock, Dozing ? kDoze : kSleep);
  }
  Dozing = false;
  if (Stopping.load()) return false;
  sinceStatsNs = Platform.clock.SteadyNs() - StatsStartNs;
  message = Queue.Pop();
  if (IsFrame(message)) IdleDozes = 0;
  Services.Stats.InQ = Queue.Size();
  if (sinceStatsNs >= kStatsPeriodNs) surplus = Queue.Shrink();
  return true;
}

void CRecordMgr::Process(const RecordMessage& message, std::int64_t sinceStatsNs) {
  RecordStats& stats = Services.Stats;
  const std::int64_t begin = Platform.clock.SteadyNs();
  Guarded("handling a message", [&] { HandleMessage(message); });
  const std::int64_t handled = Platform.clock.SteadyNs();
  ++stats.ExecutedLastMin;
  ++stats.ExecutedTotal;
  NoteTime(handled - begin, stats.msgcur, stats.msgmin, stats.msgmax);

  Guarded("periodic work", [&] { AfterMessage(sinceStatsNs); });
  NoteTime(Platform.clock.SteadyNs() - handled, stats.nmsgcur, stats.nmsgmin, stats.nmsgmax);
}

void CRecordMgr::HandleMessage(const RecordMessage& message) {
  if (!IsFrame(message)) {
    HandleXml(message);
    return;
  }
  if (!IsStopping()) {
    IntakeFrame(Services, Streams, Ptz, message.Payload, message.Length, message.Source,
                message.SubCode, message.Header);
    return;
  }
  // Not recorded any more: back to the queue, whose rest the destructor releases.
  BufferReference reference(Core, message.Payload);
  const std::lock_guard guard(QueueLock);
  Queue.Push(message);
  reference.PassOn();
}

void CRecordMgr::HandleXml(const RecordMessage& message) {
  BufferReference payload(Core, message.Payload);
  const auto* text = static_cast<const char*>(message.Payload);
  XmlDocument document;
  const bool parsed =
      document.ParseText(std::string_view(text, text == nullptr ? 0 : message.Length));
  payload.Release();
  const TiXmlElement* root = document.FirstChildElement(kRootName);
  if (!parsed || root == nullptr) {
    LogPrintf(LogWarning, "skipping msg - %s", parsed ? "qDVR is not root element" : "Bad XML");
    return;
  }
  if (IsStopping()) return;
  if (message.Type == 0 && (message.Class & KELVO_WRITE_ACTION) != 0) {
    ApplyAction(*root);
  } else if (message.Type == 0 && (message.Class & KELVO_WRITE_PTZ) != 0) {
    ApplyPtz(Config, *root);
  } else if (message.Type == KELVO_IOCTL_SYSTEM) {
    ApplySystem(*root);
  } else if (message.Type == KELVO_IOCTL_CONFIGURATION) {
    int delta = 0;
    if (ReadInt(*root, "Delta", delta) && delta != 0) {
      ApplyDelta(*root);
    } else {
      ApplyConfiguration(*root);
    }
  }
}

void CRecordMgr::ApplyAction(const TiXmlElement& root) {
  if (root.FirstChildElement("Devices") != nullptr) ApplyActionDevices(Config, root);
  if (root.FirstChildElement("Archives") != nullptr) ApplyArchiveStatus(root);
  if (root.FirstChildElement("Storage") != nullptr) {
    ++Services.Stats.astg;
    ApplyReservations(Services, root);
  }
}

void CRecordMgr::ApplyConfiguration(const TiXmlElement& root) {
  if (root.FirstChildElement("Devices") != nullptr) ApplyDevices(Config, root);
  if (root.FirstChildElement("Events") != nullptr) ApplyEvents(Config, root);
  ApplyArchives(Config, root);
  if (root.FirstChildElement("Storage") != nullptr) ApplyStorage(Config, root);
  if (root.FirstChildElement("Cases") != nullptr) ApplyCases(root);
}

void CRecordMgr::ApplyArchiveStatus(const TiXmlElement& root) {
  ++Services.Stats.aarc;
  for (const TiXmlElement& archives : Children(root, "Archives")) {
    if (HasModuleId(archives, KELVO_MODULE_ARCHIVES)) FileSystem.ApplyArchiveStatus(archives);
  }
}

void CRecordMgr::ApplyCases(const TiXmlElement& root) {
  ++Services.Stats.icas;
  for (const TiXmlElement& cases : Children(root, "Cases")) {
    if (!HasModuleId(cases, KELVO_MODULE_CASES)) continue;
    FileSystem.ApplyCasesXml(cases, false);
    return;
  }
}

void CRecordMgr::ApplyDelta(const TiXmlElement& root) {
  TiXmlElement reply("Storage");
  bool drivesGiven = false;
  if (FileSystem.ApplyStorageXml(root, drivesGiven, reply)) {
    UpdateStreams(Config, drivesGiven, true);
    FileSystem.SaveStorage();
  }
  if (reply.FirstChild() != nullptr) FileSystem.SendStorageXml(reply);
}

void CRecordMgr::ApplySystem(const TiXmlElement& root) {
  if (!FileSystem.ApplySystemState(root)) return;
  UpdateStreams(Config, false, false);
  FileSystem.SaveStorage();
}

void CRecordMgr::AfterMessage(std::int64_t sinceStatsNs) {
  if (IsStopping()) return;
  if (sinceStatsNs >= kStatsPeriodNs) EndMinute(sinceStatsNs);
  FileSystem.ContinueReport();
  FollowAudioSetting();
  OpenDueFiles();
  if (!IsStopping()) KickSweeperWhenDue();
}

void CRecordMgr::KickSweeperWhenDue() {
  const std::int64_t now = Platform.clock.SteadyNs();
  if (now < SweepDueNs) return;
  const bool stillRunning = FileSystem.KickSweeper(false);
  SweepDueNs = now + (stillRunning ? kSweepRetryNs : kSweepPeriodNs);
}

void CRecordMgr::EndMinute(std::int64_t elapsedNs) {
  FileSystem.SetRecordingMbps(RecordingRate(elapsedNs / kNsPerMicrosecond));
  StatsStartNs = Platform.clock.SteadyNs();
  PublishStats(Services.Stats);
  FileSystem.ReportStatus(true);
  Services.Stats.ExecutedLastMin = 0;
}

double CRecordMgr::RecordingRate(std::int64_t elapsedMicroseconds) {
  std::uint64_t bytes = 0;
  for (const auto& stream : Streams.All()) bytes += stream->TakeWrittenBytes();
  const double seconds = static_cast<double>(elapsedMicroseconds) / 1e6;
  return static_cast<double>(bytes) * 8 * kMegabitsPerBit / seconds;
}

void CRecordMgr::FollowAudioSetting() {
  const std::uint32_t changes = FileSystem.PreserveAudioChanges();
  if (changes == PlacedAudioChanges) return;
  PlacedAudioChanges = changes;
  PlaceAudio(Config, FileSystem.PreserveExpirationAudioWithVideo());
}

void CRecordMgr::OpenDueFiles() {
  const qv::kelvo::UtcMs now = Platform.clock.NowMs();
  if (!Streams.AnyFileDue(now)) return;
  for (const auto& stream : Streams.All()) {
    if (IsStopping()) return;
    if (!stream->FileDue(now)) continue;
    Guarded("opening the next file", [&] {
      stream->CloseFile();
      if (!IsStopping()) stream->OpenFile();
    });
  }
}

std::int64_t CRecordMgr::ReservedGB(const std::string& volume) const {
  return Reservations.ReservedGB(volume);
}

bool CRecordMgr::IsBeingWritten(const std::string& path) const {
  return Reservations.HasReservation(path);
}

}  // namespace qvsvr::kelvo
