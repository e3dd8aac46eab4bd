#include "shell/CFilePlugin.h"

#include <stdexcept>

#include "host/Xml.h"
#include "kelvo/host_abi.h"
#include "search/Search.h"

namespace qvsvr::kelvo {

CFilePlugin::CFilePlugin(qv::kelvo::Platform& platform, RecordQueue& queue)
    : HostLink(platform.clock),
      FileSystem(*this, platform),
      RecordMgr(FileSystem, *this, platform, queue, &ClosedTables),
      Platform(platform),
      Queue(queue) {}

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
