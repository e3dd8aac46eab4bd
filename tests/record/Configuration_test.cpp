// Configuration as a conversation: what the host sends, and what the streams are behind it. The
// conversations stand in configuration.txt, which says how it is read.
#include <algorithm>
#include <sstream>

#include "record/CRecordMgr.h"
#include "tests/record/StreamFixture.h"
#include "tests/support/Conversation.h"

namespace qvsvr::kelvo {
namespace {

using testsupport::Conversation;
using testsupport::Step;

std::vector<Conversation> ReadConversations() {
  return testsupport::ReadConversations(KELVO_CONFIGURATION);
}

class Configuration : public StreamParts, public ::testing::WithParamInterface<Conversation> {
 protected:
  using Handler = void (*)(const ConfigTarget&, const TiXmlElement&);

  void Apply(Handler handler, std::string text) {
    if (const std::size_t at = text.find('@'); at != std::string::npos) {
      const std::size_t end = text.find('/', at);
      text.replace(at, end + 1 - at, tree.MakeDirectory(text.substr(at + 1, end - at - 1)));
    }
    XmlDocument document;
    ASSERT_TRUE(document.ParseText("<qDVR>" + text + "</qDVR>")) << text;
    volumes.BeginMessage();
    handler(target, *document.RootElement());
  }

  static void Reserve(const ConfigTarget& target, const TiXmlElement& root) {
    ApplyReservations(target.Services, root);
  }

  void Run(const Step& step) {
    static const std::map<std::string, Handler> kHandlers = {
        {"devices", ApplyDevices},      {"events", ApplyEvents}, {"ptz", ApplyPtz},
        {"action", ApplyActionDevices}, {"disks", ApplyStorage}, {"reserve", Reserve}};
    if (const auto handler = kHandlers.find(step.command); handler != kHandlers.end()) {
      Apply(handler->second, step.text);
    } else if (step.command == "settings") {
      XmlDocument document;
      ASSERT_TRUE(document.ParseText("<qDVR>" + step.text + "</qDVR>"));
      bool drivesGiven = false;
      TiXmlElement reply("Storage");
      storage.ApplyStorageXml(*document.RootElement(), drivesGiven, reply);
    } else if (step.command == "update") {
      UpdateStreams(target, step.text == "drives", step.text == "drives");
    } else if (step.command == "audio") {
      PlaceAudio(target, step.text == "together");
    } else if (step.command == "pass") {
      bundle.clock.Advance(std::stoll(step.text));
    } else if (step.command == "room") {
      storage.Volume = step.text == "none" ? "" : tree.MakeDirectory("volume");
    } else if (step.command == "drive") {
      bundle.drives.Add(tree.MakeDirectory(step.text));
      ASSERT_TRUE(storage.LoadStorage());
    } else if (step.command == "frames") {
      std::istringstream words(step.text);
      for (std::uint32_t provider = 0; words >> std::hex >> provider;) Give(provider);
    } else {
      FAIL() << "what is " << step.command;
    }
  }

  void Give(std::uint32_t provider) {
    RecordMessage frame;
    frame.Payload = host.NewBuffer("frame");
    frame.Length = 5;
    frame.Source = provider;
    frame.Header.Seconds = static_cast<std::uint32_t>(bundle.clock.NowMs() / 1000);
    frame.Header.FrameType = (provider & 16) != 0 ? KELVO_FRAME_AUDIO : KELVO_FRAME_I;
    IntakeFrame(services, streams, ptz, frame);
  }

  // The same on every machine.
  std::string Neutral(std::string text) const {
    for (std::size_t at; (at = text.find(tree.Path(""))) != std::string::npos;) {
      text.replace(at, tree.Path("").size(), "@");
    }
    std::ranges::replace(text, '\\', '/');
    return text;
  }

  // The streams, each with its slots in use, and what was logged and told.
  std::string Seen() {
    std::ostringstream out;
    out << tree.FilesEndingIn(".ps").size() << " recordings, "
        << reservations.ReservedGB(storage.Volume) << " GB reserved\n";
    for (const auto& stream : streams.All()) {
      out << std::hex << stream->StreamId << std::dec << " active "
          << stream->ActiveChannels.count();
      if (const auto opened = stream->GetOpenTime()) out << " file " << *opened - start;
      if (stream->DefaultLapse != 0) out << " lapse " << stream->DefaultLapse;
      out << '\n';
      for (int slot = 0; slot < kSlots; ++slot) Describe(*stream, slot, out);
    }
    for (const FakeHost::LogLine& line : host.Lines()) {
      if (line.level >= LogWarning || line.text.starts_with("deleted") ||
          line.text.find("ed reservation GUID") != std::string::npos) {
        out << line.text << '\n';
      }
    }
    for (const FakeHost::XmlEvent& event : host.Events()) {
      std::string told;
      for (const auto& [begin, end] : {std::pair{"<Device ", " Time="},
                                       {" Path=", " /></Video"},
                                       {"<Reservation ", "</Storage"}}) {
        const std::size_t at = event.text.find(begin);
        if (at != std::string::npos) told += event.text.substr(at, event.text.find(end, at) - at);
      }
      if (!told.empty()) out << Neutral(told) << '\n';
    }
    host.ForgetTraffic();
    return out.str();
  }

  void Describe(const RecordStream& stream, int number, std::ostream& out) {
    const ChannelSlot& slot = stream.Slots[static_cast<std::size_t>(number)];
    if (slot.Encoder < 0) return;
    out << "slot " << number << " <-" << std::hex;
    for (std::uint32_t lowByte = 0; lowByte < 256; ++lowByte) {
      // Of contexts and devices without end one will do: what comes here, and not to another
      // stream.
      const std::uint32_t provider = (stream.StreamId & ~0xFFu) | lowByte;
      const bool comes = stream.SlotOf(provider) == number && streams.Route(provider) == &stream;
      if (comes) out << ' ' << lowByte;
    }
    out << std::dec << " input " << slot.Input << " (" << stream.EffectiveInput(number) << ") '"
        << slot.Name << "' encoder " << slot.Encoder << " standard " << slot.Standard;
    if (slot.Width != 0) out << ' ' << slot.Width << 'x' << slot.Height;
    if (slot.SampleRate != 0) out << ' ' << slot.SampleRate << '/' << slot.BufSizeSamples;
    if (slot.PreMotion + slot.PostMotion != 0) {
      out << " motion " << slot.PreMotion << '+' << slot.PostMotion;
    }
    if (slot.PreAlarm != 0) out << " prealarm " << slot.PreAlarm;
    for (const ScheduleEntry& entry : slot.Schedule) List(entry, out << " record");
    for (const ScheduleEntry& entry : slot.LapseSchedule) List(entry, out << " lapse");
    for (const auto& [action, end] : slot.ActiveAlarms) {
      out << " alarm " << action << (end ? " to " + std::to_string(*end) : "");
    }
    int waiting = 0, moving = 0;
    for (auto* frame = stream.Undecided().SlotFront(number); frame; frame = frame->SlotNewer) {
      ++waiting;
      moving += frame->Ptz;
    }
    if (waiting != 0) out << " waiting " << waiting;
    if (moving != 0) out << " moving " << moving;
    out << '\n';
  }
  static void List(const ScheduleEntry& entry, std::ostream& out) {
    out << ' ' << entry.FirstHour << '-' << entry.LastHour << ':' << entry.Value;
  }

  StreamSet streams;
  PreAlarmTable preAlarm;
  PtzInputs ptz;
  const ConfigTarget target{services, streams, preAlarm, ptz};
  const qv::kelvo::UtcMs start = bundle.clock.NowMs();
};

TEST_P(Configuration, GivesTheStreamsThatAreWanted) {
  ASSERT_FALSE(GetParam().steps.empty());
  for (const Step& step : GetParam().steps) {
    SCOPED_TRACE("configuration.txt:" + std::to_string(step.line));
    Run(step);
    if (!step.expected.empty()) {
      EXPECT_EQ(Seen(), step.expected == "-\n" ? "" : step.expected);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Text, Configuration, ::testing::ValuesIn(ReadConversations()),
                         [](const auto& made) { return made.param.name; });

}  // namespace
}  // namespace qvsvr::kelvo
