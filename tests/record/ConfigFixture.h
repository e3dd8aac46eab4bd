#pragma once

#include "record/DeviceConfig.h"
#include "tests/record/StreamFixture.h"

namespace qvsvr::kelvo {

// Applies configuration messages to streams that record on one drive.
class ConfigFixture : public StreamParts {
 protected:
  // "Device Number='5'" and what is inside it.
  static std::string Tag(const std::string& open, const std::string& inner = {}) {
    return "<" + open + ">" + inner + "</" + open.substr(0, open.find(' ')) + ">";
  }
  static std::string Numbered(const std::string& name, int number, const std::string& inner = {}) {
    return Tag(name + " Number='" + std::to_string(number) + "'", inner);
  }
  // The plug-in whose devices are configured unless told otherwise.
  static std::string Owned(const std::string& inner) { return Tag("Devices ID='4259840'", inner); }
  static std::string Device(int number, const std::string& inner) {
    return Owned(Numbered("Device", number, inner));
  }
  static std::string Schedule(int record, const std::string& inner = {}) {
    return Tag("Schedule", "<Entry FirstHour='0' LastHour='167' Record='" + std::to_string(record) +
                               "'/>" + inner);
  }
  static std::string Expiring() { return Schedule(2, "<Expiration Type='2' Days='9'/>"); }
  static std::string Input(int number, const std::string& inner = Schedule(2)) {
    return Tag(
        "Input Number='" + std::to_string(number) + "' Name='in" + std::to_string(number) + "'",
        inner);
  }
  static std::string Encoder(int number, const std::string& inner, bool running = false) {
    return Tag(
        "Encoder Number='" + std::to_string(number) + "' Running='" + (running ? "1'" : "0'"),
        inner);
  }
  static std::string Channel(int number) {
    return "<Channel Number='" + std::to_string(number) +
           "' Standard='1' Width='704' Height='576'/>";
  }
  static std::string AudioChannel(int number) {
    return "<AudioChannel Number='" + std::to_string(number) +
           "' Standard='2' SampleRate='8000' BufSizeSamples='160'/>";
  }
  // One camera on encoder 0, input and channel 0.
  static std::string Camera(int device, bool running = false,
                            const std::string& schedule = Schedule(2)) {
    return Numbered(
        "Device", device,
        Tag("Video", Input(0, schedule)) + Tag("Codec", Encoder(0, Channel(0), running)));
  }

  using Handler = void (*)(const ConfigTarget&, const TiXmlElement&);
  void Apply(Handler handler, const std::string& inner) {
    XmlDocument document;
    ASSERT_TRUE(document.ParseText(Tag("qDVR", inner))) << inner;
    volumes.BeginMessage();
    handler(target, *document.RootElement());
  }
  void Configure(const std::string& devices) { Apply(ApplyDevices, devices); }

  // Sends storage settings, as attributes or elements of a Storage element.
  void Store(const std::string& attributes, const std::string& inner = {}) {
    XmlDocument document;
    ASSERT_TRUE(document.ParseText(Tag("qDVR", Tag("Storage ID='327680' " + attributes, inner))));
    bool drivesGiven = false;
    TiXmlElement reply("Storage");
    storage.ApplyStorageXml(*document.RootElement(), drivesGiven, reply);
  }

  RecordStream& Stream(std::uint32_t id) {
    RecordStream* stream = streams.Find(id);
    if (stream != nullptr) return *stream;
    ADD_FAILURE() << "no stream " << std::hex << id;
    return streams.Add(std::make_unique<RecordStream>(services, id));
  }

  // Gives a stream one I frame now, by default on channel 0 of encoder 0.
  void AddFrame(RecordStream& stream, std::uint32_t lowByte = 0) {
    KelvoFrameHeader header{};
    header.Seconds = static_cast<std::uint32_t>(bundle.clock.NowMs() / 1000);
    header.FrameType = (lowByte & 16) != 0 ? KELVO_FRAME_AUDIO : KELVO_FRAME_I;
    void* buffer = host.NewBuffer("frame");
    const std::uint32_t provider = (stream.StreamId & ~0xFFu) | lowByte;
    ASSERT_TRUE(stream.StreamAddFrame(provider, buffer, 5, 0, header, false));
  }

  StreamSet streams;
  PreAlarmTable preAlarm;
  PtzInputs ptz;
  const ConfigTarget target{services, streams, preAlarm, ptz};
};

}  // namespace qvsvr::kelvo
