#include "bench/StorageSite.h"

#include <boost/filesystem.hpp>

namespace bench {

void Site::Open() {
  boost::filesystem::remove("kelvo.xml");
  storage = std::make_unique<qvsvr::kelvo::CFileSystem>(core, platform);
  storage->LoadStorage();
}

void Site::Apply(const std::string& storageXml) {
  qvsvr::kelvo::XmlDocument document;
  document.ParseText("<qDVR><Storage ID='327680'>" + storageXml + "</Storage></qDVR>");
  bool given = false;
  TiXmlElement reply("Storage");
  storage->ApplyStorageXml(*document.RootElement(), given, reply);
}

Recorder::Recorder(Site& onSite, int cameraCount, std::size_t frameSize,
                   const std::string& schedule)
    : site(onSite),
      cameras(cameraCount),
      manager(*onSite.storage, onSite.core, onSite.platform, queue),
      payload(frameSize) {
  std::string text = "<qDVR><Devices ID='1245184'>";
  for (int camera = 0; camera < cameras; ++camera) {
    text += "<Device Number='" + std::to_string(camera) +
            "'><Video><Input Number='0'><Schedule><Entry FirstHour='0' LastHour='167' "
            "Record='2'/>" +
            schedule +
            "</Schedule></Input></Video><Codec><Encoder Number='0'><Channel "
            "Number='0' Standard='2' Width='640' Height='480'/></Encoder></Codec></Device>";
  }
  Configure(text + "</Devices></qDVR>");
}

void Recorder::Configure(std::string text) {
  qvsvr::kelvo::RecordMessage message;
  message.Type = KELVO_IOCTL_CONFIGURATION;
  message.Payload = text.data();
  message.Length = static_cast<std::uint32_t>(text.size());
  manager.HandleMessage(message);
  manager.AfterMessage(0, 0);
}

void Recorder::Give(int frames) {
  for (int i = 0; i < frames; ++i, ++given) {
    qvsvr::kelvo::RecordMessage frame;
    frame.Class = 1;
    frame.Payload = payload.data();
    frame.Length = static_cast<std::uint32_t>(payload.size());
    frame.Source = TreeCamera(given % cameras) + 0x00010000u;
    frame.Header.FrameType = given / cameras % 25 == 0 ? KELVO_FRAME_I : KELVO_FRAME_P;
    frame.Header.Seconds = static_cast<std::uint32_t>(site.clock.NowMs() / 1000);
    manager.HandleMessage(frame);
    manager.AfterMessage(0, 0);
  }
}

}  // namespace bench
