#include "shell/CFilePlugin.h"

#include <stdexcept>

#include "host/Log.h"
#include "host/Xml.h"
#include "kelvo/host_abi.h"
#include "search/Search.h"

namespace qvsvr::kelvo {
namespace {

KelvoHostRequest NewRequest() {
  KelvoHostRequest request{};
  request.Size = sizeof request;
  request.Version = 1;
  request.Source = KELVO_MODULE_ID;
  return request;
}

KelvoHostReply NewReply() {
  return {sizeof(KelvoHostReply), 1, 0};
}

}  // namespace

CFilePlugin::CFilePlugin(qv::kelvo::Platform& platform, RecordQueue& queue)
    : FileSystem(*this, platform),
      RecordMgr(FileSystem, *this, platform, queue, &ClosedTables),
      Platform(platform),
      Queue(queue) {}

std::uint32_t CFilePlugin::SendHostMessage(const KelvoHostRequest& request, KelvoHostReply& reply) {
  const KelvoHostFunction host = HostFunction();
  return host == nullptr ? 0 : host(&request, &reply);
}

// What the host doesn't take is told in the log and otherwise lost: here and below there is nobody
// else to turn to.
void CFilePlugin::SendXmlEvent(const std::string& text, std::uint32_t eventClass) {
  KelvoHostRequest request = NewRequest();
  request.Length = static_cast<std::uint32_t>(text.size());
  request.Payload = text.data();
  request.Class = eventClass;
  request.SubCode = KELVO_SUB_XML_EVENT;
  KelvoHostReply reply = NewReply();
  const std::uint32_t result = SendHostMessage(request, reply);
  if (result != 0 || reply.Status != 0) {
    LogPrintf(LogError, "xml event ret %d error code %d", result, reply.Status);
  }
}

void CFilePlugin::DecrementReference(void* buffer) {
  KelvoHostRequest request = NewRequest();
  request.Payload = buffer;
  request.Class = KELVO_CLASS_RELEASE;
  KelvoHostReply reply = NewReply();
  const std::uint32_t result = SendHostMessage(request, reply);
  if (result != 0 || reply.Status != 0) {
    LogPrintf(LogError, "decrement reference event ret %d error %d", result, reply.Status);
  }
}

std::uint32_t CFilePlugin::GetCoreTime(std::int64_t& seconds, std::uint16_t& milliseconds) {
  const qv::kelvo::UtcMs now = Platform.clock.NowMs();
  seconds = static_cast<std::int32_t>(now / 1000);
  milliseconds = static_cast<std::uint16_t>(now % 1000);
  return 0;
}

bool CFilePlugin::IsStopping() const {
  return RecordMgr.IsStopping();
}

// The host knows the module before it hears of its drives and settings, and blocks are let in when
// there is a worker to take them. Another Open that comes meanwhile is refused, not made to wait.
void CFilePlugin::Open(const char* version) {
  Phase before = Phase::Loaded;
  if (!phase.compare_exchange_strong(before, Phase::Opening) &&
      (before != Phase::Failed || !phase.compare_exchange_strong(before, Phase::Opening))) {
    throw std::logic_error("the plug-in is already open");
  }
  try {
    Announce(version);
    FileSystem.LoadStorage();
    FileSystem.HealRecordings();
    RecordMgr.Start();
    Queue.SetClosed(false);
    phase = Phase::Open;
  } catch (...) {
    Queue.SetClosed(true);
    phase = Phase::Failed;
    throw;
  }
}

std::uint32_t CFilePlugin::Search(std::string_view text, std::uint32_t requestId) {
  SearchTargetFileSystem target(FileSystem, Platform, &ClosedTables);
  return qvsvr::kelvo::Search(text, requestId, target, *this);
}

void CFilePlugin::Announce(const char* version) {
  TiXmlDocument document;
  TiXmlElement* root = BeginXml(document);
  root->SetAttribute("Delta", 0);
  TiXmlElement module("Module");
  module.SetAttribute("Name", "KELVO");
  module.SetAttribute("ID", static_cast<int>(KELVO_MODULE_ID));
  module.SetAttribute("Version", version);
  TiXmlElement modules("Modules");
  modules.InsertEndChild(module);
  root->InsertEndChild(modules);
  SendXmlEvent(PrintXml(document), KELVO_CLASS_BROADCAST);
}

}  // namespace qvsvr::kelvo
