#include "record/CRecordMgr.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "host/ICoreEventer.h"
#include "host/Log.h"
#include "kelvo/host_abi.h"
#include "media/StreamId.h"
#include "platform/Threads.h"
#include "record/Reservations.h"
#include "storage/StorageMessages.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::int64_t kNsPerMicrosecond = 1000;
constexpr std::int64_t kStatsPeriodNs = 60'000'000'000;
constexpr std::int64_t kSweepPeriodNs = 3'600'000'000'000;
constexpr std::int64_t kSweepRetryNs = 300'000'000'000;  // also the wait for the first sweep
constexpr double kMegabitsPerBit = 1.0 / (1 << 20);      // a megabit is 1,048,576 bits here

void NoteTime(std::int64_t elapsedNs, std::uint64_t& current, std::uint64_t& least,
              std::uint64_t& most) {
  current = static_cast<std::uint64_t>(elapsedNs / kNsPerMicrosecond);
  least = std::min(least, current);
  most = std::max(most, current);
}

// Whether the camera of the frame's own slot moves. PTZ messages name inputs without a context.
bool IsCameraMoving(const RecordStream& stream, std::uint32_t provider, const PtzInputs& ptz) {
  const int slot = stream.SlotOf(provider);
  if (slot < 0 || slot >= kVideoSlots) return false;
  const int input = stream.EffectiveInput(slot);
  if (input < 0) return false;
  return ptz.IsMoving(qv::kelvo::MakeStreamID(0, qv::kelvo::ProviderOf(provider),
                                              qv::kelvo::DeviceOf(provider),
                                              static_cast<std::uint32_t>(input)));
}

}  // namespace

CRecordMgr::CRecordMgr(CFileSystem& fileSystem, ICoreEventer& core, qv::kelvo::Platform& platform,
                       RecordQueue& queue, qv::kelvo::RunTables* closed)
    : FileSystem(fileSystem),
      Core(core),
      Platform(platform),
      Alarms(core),
      Volumes(fileSystem, *this),
      Services{core, fileSystem, *this, Volumes, platform, Alarms, Reservations, Stats(), closed},
      Files(Services, Streams),
      Config{Services, Streams, PreAlarmSeconds, Ptz},
      Queue(queue),
      SweepDueNs(platform.clock.SteadyNs() + kSweepRetryNs) {
  Queue.Begin(platform.clock);
}

CRecordMgr::~CRecordMgr() {
  Queue.Stop();
  if (Worker.joinable()) {
    Worker.join();
  } else {
    TellWhatIsLeft();
  }
  for (const auto& stream : Streams.All()) {
    Guarded("closing a file", [&] { stream->CloseFile(); });
  }
  while (!Streams.All().empty()) Streams.Remove(Streams.All().back().get());
  for (RecordMessage left; Queue.TakeLeft(left);) {
    const BufferReference released(Core, left.Payload);
  }
  Queue.End();
}

// A stop doesn't wait for the queue to run empty: a host that ends shouldn't wait for a slow disk.
void CRecordMgr::TellWhatIsLeft() {
  const std::size_t frames = Queue.FramesLeft();
  if (frames != 0) LogPrintf(LogWarning, "%zu queued frames were not recorded", frames);
}

void CRecordMgr::Start() {
  if (Worker.joinable()) throw std::logic_error("the record worker is already running");
  Worker = std::thread(&CRecordMgr::Run, this);
}

// The thread. The drives' state is told before the first message, so that a host learns of a faulty
// drive although nothing is recorded yet; the sweep waits, for a start has more urgent work.
void CRecordMgr::Run() {
  qv::kelvo::PrepareThread();
  LogPrintf(LogTrace, "KELVO - RecordMgr worker - running");
  StatsStartNs = Platform.clock.SteadyNs();
  SweepDueNs = StatsStartNs + kSweepRetryNs;
  Guarded("reporting the status", [this] { FileSystem.ReportStatus(true); });
  RecordQueue::Taken taken;
  while (Queue.Next(taken, StatsStartNs + kStatsPeriodNs)) {
    Services.Stats.InQ = taken.left;
    Services.Stats.InQAgeMs = taken.oldestMs;
    Process(taken.message, taken.steadyNs);
  }
  TellWhatIsLeft();
  Guarded("stopping the sweeper", [this] { FileSystem.KickSweeper(true); });
}

void CRecordMgr::Process(const RecordMessage& message, std::int64_t begin) {
  RecordStats& stats = Services.Stats;
  Guarded("handling a message", [&] { HandleMessage(message); });
  const std::int64_t handled = Platform.clock.SteadyNs();
  ++stats.ExecutedLastMin;
  ++stats.ExecutedTotal;
  NoteTime(handled - begin, stats.msgcur, stats.msgmin, stats.msgmax);

  Guarded("periodic work", [&] { AfterMessage(begin - StatsStartNs, handled); });
  NoteTime(Platform.clock.SteadyNs() - handled, stats.nmsgcur, stats.nmsgmin, stats.nmsgmax);
}

void CRecordMgr::HandleMessage(const RecordMessage& message) {
  Volumes.BeginMessage();
  if (!RecordQueue::IsFrame(message)) {
    HandleXml(message);
    return;
  }
  if (!IsStopping()) {
    IntakeFrame(Services, Streams, Ptz, message);
    return;
  }
  // Not recorded any more: back to the queue, whose rest the destructor releases.
  BufferReference reference(Core, message.Payload);
  Queue.PutBack(message);
  reference.PassOn();
}

void CRecordMgr::HandleXml(const RecordMessage& message) {
  BufferReference payload(Core, message.Payload);
  const auto* text = static_cast<const char*>(message.Payload);
  XmlDocument document;
  // A table of bookmarks may be most of the message, and no tree is ever needed of it.
  document.nameAside = "Cases";
  const bool parsed =
      document.ParseText(std::string_view(text, text == nullptr ? 0 : message.Length));
  payload.Release();
  const TiXmlElement* root = document.FirstChildElement(kRootName);
  if (!parsed || root == nullptr) {
    LogPrintf(LogWarning, "skipping msg - %s", parsed ? "qDVR is not root element" : "Bad XML");
    return;
  }
  if (IsStopping()) return;
  // Type 0 came by Write, where bits of the class tell messages apart; others name an operation.
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
      ApplyConfiguration(*root, document.aside);
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

// A full configuration. Devices come first: pre-alarm times, archives and drives apply to the
// streams that it leaves.
void CRecordMgr::ApplyConfiguration(const TiXmlElement& root,
                                    const std::vector<std::string>& cases) {
  if (root.FirstChildElement("Devices") != nullptr) ApplyDevices(Config, root);
  if (root.FirstChildElement("Events") != nullptr) ApplyEvents(Config, root);
  ApplyArchives(Config, root);
  if (root.FirstChildElement("Storage") != nullptr) ApplyStorage(Config, root);
  if (!cases.empty()) ApplyCases(cases);
}

void CRecordMgr::ApplyArchiveStatus(const TiXmlElement& root) {
  ++Services.Stats.aarc;
  for (const TiXmlElement& archives : Children(root, "Archives")) {
    if (HasModuleId(archives, KELVO_MODULE_ARCHIVES)) FileSystem.ApplyArchiveStatus(archives);
  }
}

void CRecordMgr::ApplyCases(const std::vector<std::string>& elements) {
  ++Services.Stats.icas;
  const auto cases = std::ranges::find_if(elements, [](const std::string& text) {
    return HasModuleId(ParseTag(text), KELVO_MODULE_CASES);
  });
  if (cases != elements.end()) FileSystem.ApplyCasesXml(*cases, false);
}

// A change of the storage settings alone. Files end when drives were named, since the next ones may
// belong elsewhere.
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
  if (!FileSystem.Licence().Apply(root)) return;
  UpdateStreams(Config, false, false);
  FileSystem.SaveStorage();
}

// A stop may come at any of these steps, each of which may touch many files.
void CRecordMgr::AfterMessage(std::int64_t sinceStatsNs, std::int64_t now) {
  if (IsStopping()) return;
  if (sinceStatsNs >= kStatsPeriodNs) EndMinute(sinceStatsNs);
  FileSystem.ContinueReport();
  FollowAudioSetting();
  if (!IsStopping()) Files.Follow();
  if (!IsStopping()) KickSweeperWhenDue(now);
}

void CRecordMgr::KickSweeperWhenDue(std::int64_t now) {
  if (now < SweepDueNs) return;
  const bool stillRunning = FileSystem.KickSweeper(false);
  SweepDueNs = now + (stillRunning ? kSweepRetryNs : kSweepPeriodNs);
}

// The rate is taken before the report that tells it, and the minute begins anew before that report
// measures drives, which may take a while.
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

// The setting may come with any storage message, or with the settings file once that can be read; a
// counter of its changes spares each of these ways a call.
void CRecordMgr::FollowAudioSetting() {
  const std::uint32_t changes = FileSystem.Retention().preserveAudioChanges;
  if (changes == PlacedAudioChanges) return;
  PlacedAudioChanges = changes;
  PlaceAudio(Config, FileSystem.Retention().preserveExpirationAudioWithVideo);
}

std::int64_t CRecordMgr::ReservedGB(const std::string& volume) const {
  return Reservations.ReservedGB(volume);
}

bool CRecordMgr::IsBeingWritten(const std::string& path) const {
  return Reservations.HasReservation(path);
}

void IntakeFrame(RecordServices& services, StreamSet& streams, const PtzInputs& ptz,
                 const RecordMessage& frame) {
  BufferReference reference(services.Core, frame.Payload);
  ++services.Stats.eav;
  RecordStream* stream = streams.Route(frame.Source);
  if (stream == nullptr) {
    LogPrintf(LogCritical, "write invalid provider ID %08lX!!!",
              static_cast<unsigned long>(frame.Source));
    return;
  }
  const bool moving = IsCameraMoving(*stream, frame.Source, ptz);
  if (stream->StreamAddFrame(frame.Source, frame.Payload, frame.Length, frame.SubCode, frame.Header,
                             moving)) {
    reference.PassOn();
  }
}

}  // namespace qvsvr::kelvo
