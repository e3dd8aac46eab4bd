// Storage as a conversation: what the host, the recorder and the disks do, and what comes of it.
// The conversations stand in conversations.txt, which says how it is read.
#include <algorithm>
#include <atomic>
#include <boost/algorithm/string/replace.hpp>
#include <optional>
#include <sstream>

#include "media/PSReader.h"
#include "storage/Cleanup.h"
#include "tests/storage/RecordingForest.h"
#include "tests/support/Conversation.h"
#ifndef _WIN32
#include "tests/support/Zone.h"
#endif

namespace qvsvr::kelvo {
namespace {

namespace fs = boost::filesystem;
using testsupport::Conversation;
using testsupport::Step;

class StorageConversation : public RecordingForest,
                            public ::testing::WithParamInterface<Conversation> {
 protected:
  StorageConversation() {
    manager.onQuestion = [this] { clock.Advance(askTime); };
    directories.onList = [this](const std::string& path) {
      clock.Advance(listTime);
      ++(path.size() > std::string("a/2025/06/15/").size() ? hours : others);
    };
    files.before = [this](qv::kelvo::FileCall call, const std::string& path) {
      if (call == qv::kelvo::FileCall::Open && path.ends_with(".ps")) clock.Advance(headTime);
    };
  }
  ~StorageConversation() override {
    searched = nullptr;
    storage = nullptr;  // whose threads use what stands here
  }

  // What is answered, which recordings went and which settings are new.
  std::string Take(const Step& step) {
    const auto command = commands.find(step.command);
    if (command == commands.end()) return "what is " + step.command;
    in = std::istringstream(WithTimes(step.text));
    out.str("");
    command->second();
    const auto before = std::exchange(state, State());
    for (const std::string& line : before)
      out << (state.contains(line) ? "" : "was " + line + '\n');
    for (const std::string& line : state) out << (before.contains(line) ? "" : line + '\n');
    if (step.expected.empty()) return "";
    std::erase_if(planted, [this](const auto& file) {
      if (!Exists(file.second)) out << "gone: " << file.first << '\n';
      return !Exists(file.second);
    });
    return qv::kelvo::Slashed(boost::replace_all_copy(out.str(), here, "$"));
  }

 private:
  std::string Word() {
    std::string word;
    in >> word;
    return word;
  }
  std::string Rest() {
    std::string rest;
    std::getline(in >> std::ws, rest);
    return rest;
  }
  template <class T = int>
  T Number() {
    T number{};
    in >> number;
    return number;
  }
  unsigned Id() { return static_cast<unsigned>(std::stoul(Word(), nullptr, 16)); }
  void Tell(bool changed) { out << (changed ? "changed\n" : ""); }
  ParsedXml Xml() { return ParsedXml("<qDVR>" + Rest() + "</qDVR>"); }

  // The moment that is so long ago: "9d", or "9d-1s", which is a second later.
  [[nodiscard]] std::int64_t Ago(const std::string& age) {
    std::istringstream parts(age);
    std::int64_t time = clock.NowMs() / 1000, count = 0;
    for (char unit = 0; parts >> count >> unit;) {
      time -= count * (unit == 'd' ? kDay : unit == 'h' ? kHour : 1);
    }
    return time;
  }
  // Each @AGE in the text stands for the seconds of that moment, and $ for the current directory.
  std::string WithTimes(std::string text) {
    boost::replace_all(text, "$", here);
    for (std::size_t at = text.find('@'); at != std::string::npos; at = text.find('@')) {
      const std::size_t size = text.find_first_not_of("0123456789dhs+-", at + 1) - at;
      text.replace(at, size, std::to_string(Ago(text.substr(at + 1, size - 1))));
    }
    return text;
  }

  // The settings in force, each with how often it changed.
  std::set<std::string> State() {
    std::set<std::string> found;
    if (storage == nullptr) return found;
    const RetentionRules& rules = storage->Retention();
    const TimeLapseTable& lapse = storage->Lapse();
    std::stringstream lines;
    lines << "expiration " << rules.expirationDays << ", change " << rules.expirationChanges
          << "\nage " << rules.contentAge << ", change " << rules.contentAgeChanges << "\naudio "
          << rules.preserveExpirationAudioWithVideo << ", change " << rules.preserveAudioChanges
          << "\nlapse " << lapse.timeLapse << ", change " << lapse.timeLapseChanges << "\ncleanup "
          << rules.fsCleanupRemoves << '\n';
    for (const auto& [name, drive] : storage->Volumes().Drives().drives) {
      lines << name << (drive.disabled ? " off" : " on") << " keeps " << drive.reservePercent
            << "%\n";
    }
    for (const auto& [id, days] : rules.cameraExpiration) {
      lines << "rule " << std::hex << id << std::dec << ' ' << days << '\n';
    }
    for (const auto& [id, schedule] : lapse.timeLapseSchedules) {
      lines << "schedule " << std::hex << id << std::dec;
      for (const auto& entry : schedule) {
        lines << ' ' << entry.FirstHour << '-' << entry.LastHour << ':' << entry.Value;
      }
      lines << '\n';
    }
    for (std::string line; std::getline(lines, line);) found.insert(line);
    return found;
  }

  // Elements with that text in them, each on a line.
  void PrintElements(std::string xml, const std::string& text) {
    for (std::size_t end; !xml.empty(); xml.erase(0, end)) {
      end = std::min(xml.find('>') + 1, xml.size());
      const std::string element = xml.substr(0, end);
      if (element.find(text) != std::string::npos) out << element << '\n';
      end = std::min(xml.find('<', end), xml.size());
    }
  }

  void SetCapacity(const std::string& drive) { drives.capacityGB[drive] = Number<std::uint64_t>(); }

  void PlantNamed() {
    const std::string name = Word(), drive = Word();
    const std::int64_t time = Ago(Word());
    qv::kelvo::StreamID id = kCamera;
    std::size_t size = 1;
    std::string head, hurt;
    for (std::string option = Word(); !option.empty(); option = Word()) {
      const std::string value = option.substr(option.find('=') + 1);
      if (option.starts_with("id=")) id = static_cast<unsigned>(std::stoul(value, nullptr, 16));
      if (option.starts_with("size=")) size = std::stoul(value);
      if (option.starts_with("head=")) head = value;
      if (option.starts_with("hurt=")) hurt = value;
    }
    std::string& path = planted[name];
    if (head.empty()) {
      WriteFile(path = Plant(drive, time, id), size);
      return;
    }
    std::istringstream parts(head);  // input of the file, channel, age of the last frame
    int input = 0, channel = 0;
    char comma = 0;
    std::string age;
    parts >> std::hex >> input >> comma >> channel >> comma >> age;
    path = PlantReal(drive, time, id, static_cast<std::uint8_t>(input),
                     static_cast<std::uint8_t>(channel), age == "none" ? 0 : Ago(age), 3);
    if (hurt == "index") WriteFile(path + "i", 0);
    if (hurt == "record") {  // of the second frame
      std::fstream index(path + "i", std::ios::binary | std::ios::in | std::ios::out);
      index.seekp(1088 + 32) << std::string(32, '\0');
    }
    if (!hurt.empty()) unhealed.insert(name);
  }

  // Which of those that were hurt are so no more, once a line tells of the one given.
  void PrintHealed(const std::string& path) {
    EXPECT_TRUE(host.WaitForLine("Healing - " + path));
    std::erase_if(unhealed, [this](const std::string& name) {
      qv::kelvo::PSReader reader(files);
      qv::kelvo::PSReadFrame second;
      second.index = 1;
      const bool whole = reader.Open(planted[name]) == 0 && reader.HasIndex();
      if (!whole || reader.GetFrame(second) != 0) return false;
      out << "healed: " << name << '\n';
      return true;
    });
  }

  // Which of the recordings might be removed. They stay, though those without their content.
  void PrintFree() {
    out << "free:";
    for (std::string name = Word(); !name.empty(); name = Word()) {
      const std::string path = planted.contains(name) ? planted[name] : name;
      if (!storage->RemoveFile(path, false)) continue;
      WriteFile(path);
      out << ' ' << name;
    }
    out << '\n';
  }

  void Sweep() {
    host.ForgetTraffic();
    EXPECT_FALSE(storage->KickSweeper(false));
    if (!host.WaitForLine("fs-cleanup - elapsed")) return;
    storage->KickSweeper(true);
    for (const auto& line : host.Lines()) {
      if (line.text.find("Sweeper - completed") == std::string::npos) continue;
      out << line.text.substr(line.text.find('(')) << '\n';
    }
  }

  void Clean(bool removing) {
    const std::atomic<bool> stop{false};
    const CleanupCounts seen =
        FsCleanup(platform, {"a/"}, stop, removing, [](const std::string&) { return false; });
    out << seen.emptyFiles << " empty, " << seen.orphanedFiles << " orphans, " << seen.emptyHours
        << " hours, " << seen.emptyDays << " days, " << seen.emptyMonths << " months, "
        << seen.emptyYears << " years\n";
  }

  void Fault() {
    using qv::kelvo::FileCall;
    const std::map<std::string, FileCall> calls = {
        {"open", FileCall::Open}, {"size", FileCall::Size}, {"read", FileCall::ReadAt}};
    const FileCall call = calls.at(Word());
    const std::string suffix = Word(), error = Word();
    const auto times = Number<std::size_t>();
    files.Set({call, 1, times == 0 ? qv::kelvo::FileFault::kForGood : times,
               error == "busy" ? qv::kelvo::kBusyError : std::stoi(error), 0, suffix});
  }

  // Recordings so far apart up to that age, on the drives by turns.
  void PlantMany(bool kept) {
    const int count = Number();
    const std::int64_t now = Ago("0s"), apart = now - Ago(Word()), last = Ago(Word());
    for (int i = count; i-- > 0;) {
      const char* const drive = i % 2 == 0 ? "a/" : "b/";
      const std::int64_t time = last - i * apart;
      if (kept) {
        planted["kept" + std::to_string(i)] = PlantReal(drive, time, kCamera, 0xFF, 5, now - kDay);
      } else {
        WriteFile(Plant(drive, time) + "m/in the way");
      }
    }
  }

  // The time of a call, and the last step.
  [[nodiscard]] int LongestCall() const {
    return 60 + std::max({headTime.load(), listTime.load(), 8 * askTime.load(), 1});
  }
  // No call takes long, nor does one that comes at once cost anything: the worker has its frames to
  // handle first. Nobody is told before the end.
  void SearchOn(int gigabytes) {
    host.ForgetTraffic();
    std::string volume;
    for (int calls = 0; calls < 100; ++calls, clock.Advance(20)) {
      const std::int64_t begin = clock.NowMs();
      volume = storage->GetRecordVolume(&manager, gigabytes);
      EXPECT_LT(clock.NowMs() - begin, LongestCall());
      EXPECT_LE(host.CountLines("GRV rm: "), 30u * static_cast<unsigned>(calls + 1));
      if (!storage->StillSearching()) {
        out << calls << " calls\n";
        break;
      }
      EXPECT_TRUE(host.Events().empty());
      const std::size_t opened = files.Calls(qv::kelvo::FileCall::Open);
      EXPECT_EQ(storage->GetRecordVolume(&manager, gigabytes), "");
      EXPECT_EQ(files.Calls(qv::kelvo::FileCall::Open), opened);
    }
    PrintVolume(volume);
  }
  void ReportOn() {
    int calls = 0;
    for (; host.Events().empty() && calls < 100; ++calls) {
      clock.Advance(20);
      const std::int64_t begin = clock.NowMs();
      storage->ContinueReport();
      EXPECT_LT(clock.NowMs() - begin, LongestCall());
    }
    out << calls << " calls\n";
  }

  void PrintVolume(const std::string& volume) {
    out << (storage->StillSearching() ? "searching" : volume.empty() ? "none" : volume) << '\n';
  }

  // What recording and searches are offered, and what was told on the way.
  void PrintOffered() {
    for (const std::uint32_t kind : {qv::kelvo::kVolumesLocal, qv::kelvo::kVolumesArchive, 0u}) {
      std::vector<std::string> volumes{"left over"};
      storage->GetVolumes(volumes, kind, &filter);
      for (const std::string& volume : volumes) {
        out << (kind == qv::kelvo::kVolumesLocal ? "drive "
                : kind != 0                      ? "archive "
                                                 : "none ")
            << volume << '\n';
      }
    }
    storage->GetTargets(targets, qv::kelvo::kVolumesArchive, &filter);
    for (const auto& target : targets) {
      out << "target";
      for (const auto& [key, value] : target->Properties()) out << ' ' << key << '=' << value;
      out << '\n';
    }
    for (const auto& line : host.Lines()) out << line.text << '\n';
    for (const auto& event : host.Events()) out << event.text << '\n';
  }

  std::istringstream in;
  std::ostringstream out;
  qv::kelvo::ArchiveFilter filter;
  qv::kelvo::TargetList targets;
  std::set<std::string> state;
  std::map<std::string, std::string> planted;  // by name
  std::set<std::string> unhealed;              // of those
  std::shared_ptr<const void> searched;
  std::vector<qv::kelvo::FakeDrive> unplugged;
  qv::kelvo::DurableFiles::WriteResult written;
  std::atomic<int> headTime{0}, listTime{0}, askTime{0}, hours{0}, others{0};
  std::size_t openedBefore = 0;
#ifndef _WIN32
  std::optional<qv::kelvo::Zone> zone;
#endif

  const std::string here = fs::current_path().string();
  const std::map<std::string, std::function<void()>> commands = {
      {"drive",
       [this] {
         const std::string name = Word();
         fs::create_directories(name);
         drives.Add(name);
         SetCapacity(name);
       }},
      {"unplug", [this] { drives.Change([&](auto& table) { table.drives.swap(unplugged); }); }},
      {"listing", [this] { drives.Change([&](auto& table) { table.drivesError = Number(); }); }},
      {"capacity", [this] { SetCapacity(Word()); }},
      {"fill", [this] { drives.Fill(); }},
      {"broken", [this] { drives.faulty = Word(); }},
      {"fault", [this] { Fault(); }},
      {"writing",
       [this] {
         const auto step = static_cast<qv::kelvo::DurableFiles::WriteStep>(Number());
         const int error = Number();
         written = {step, error, Number<std::size_t>()};
         durable.writeFailure = &written;
       }},
      {"step", [this] { durable.Arm(Number(), false); }},
      {"mend",
       [this] {
         files.ClearFaults();
         durable.writeFailure = nullptr;
       }},
      {"file",
       [this] {
         const std::string path = Word();
         WriteFile(path, Number<std::size_t>());
       }},
      {"directory", [this] { fs::create_directories(Word()); }},
      {"delete", [this] { fs::remove_all(Word()); }},
      {"rename",
       [this] {
         const std::string from = Word();
         fs::rename(from, Word());
       }},
      {"link",
       [this] {
         const std::string link = Word(), directory = Word();
         fs::create_directories(directory);
         fs::create_directory_symlink(fs::absolute(directory), link);
         if (!fs::is_symlink(link)) GTEST_SKIP() << "not every system has them";
       }},
      {"enter", [this] { fs::current_path(Word()); }},
      {"stale", [this] { directories.sizesAreOld = true; }},
      {"mount",
       [this] {
         drives.ChangeDrive(Word(),
                            [this](auto& drive) { drive.device = Number<std::uint64_t>(); });
       }},
      {"tree",
       [this] {
         const std::string root = Word();
         std::set<std::string> paths;
         for (const auto& entry : fs::recursive_directory_iterator(root)) {
           const bool full = fs::is_directory(entry.path()) && !fs::is_empty(entry.path());
           if (!full) paths.insert(entry.path().generic_string().substr(root.size()));
         }
         for (const std::string& path : paths) out << path << '\n';
       }},
      {"plant", [this] { PlantNamed(); }},
      {"pass", [this] { clock.Advance(1000 * (clock.NowMs() / 1000 - Ago(Word()))); }},
      {"clock", [this] { clock.SetNow(1000 * Ago(Word())); }},
      {"at", [this] { clock.SetNow(1000 * Number<std::int64_t>()); }},
      {"zone",
       [this] {
#ifdef _WIN32
         GTEST_SKIP() << "the zone is the system's";
#else
         zone.emplace(Word().c_str());
#endif
       }},
      {"start",
       [this] {
         host.ForgetTraffic();
         storage = std::make_unique<CFileSystem>(core, platform);
         if (!storage->LoadStorage()) out << "no drives\n";
       }},
      {"store", [this] { std::ofstream("kelvo.xml", std::ios::binary) << Rest(); }},
      {"stored",
       [this] {
         std::ifstream file("kelvo.xml", std::ios::binary);
         PrintElements({std::istreambuf_iterator<char>(file), {}}, Rest());
       }},
      {"told",
       [this] {
         const std::string text = Rest();
         for (const auto& event : host.Events()) PrintElements(event.text, text);
         host.ForgetTraffic();
       }},
      {"logged",
       [this] {
         const int level = Number();
         out << host.CountLines(level, Rest()) << '\n';
       }},
      {"storage",
       [this] {
         TiXmlElement reply("Reply");
         bool given = false;
         EXPECT_TRUE(storage->ApplyStorageXml(Xml().Root(), given, reply));
         if (given) out << "names drives\n";
         PrintElements(PrintXml(reply), "Drive ");
       }},
      {"cases", [this] { ApplyCases(Rest()); }},
      {"message", [this] { storage->ApplyCasesXml(PrintXml(ParsedXml(Rest()).Root()), false); }},
      {"system", [this] { drives.Change([this](auto& table) { table.system = Word(); }); }},
      {"prepare", [this] { Tell(storage->ApplyDiskPrep(*Xml().Root().FirstChildElement())); }},
      {"archives",
       [this] {
         host.ForgetTraffic();
         const ParsedXml xml("<Archives>" + Rest() + "</Archives>");
         const qv::kelvo::TargetList before = targets;
         Tell(storage->ApplyArchivesXml(xml.Root()));
         PrintOffered();
         for (const auto& target : before) {  // searches alone keep what was replaced
           EXPECT_TRUE(target.use_count() == 1 || std::ranges::count(targets, target) == 1);
         }
       }},
      {"states",
       [this] {
         host.ForgetTraffic();
         storage->ApplyArchiveStatus(ParsedXml("<Archives>" + Rest() + "</Archives>").Root());
         PrintOffered();
       }},
      {"wanted",
       [this] {
         filter.clear();
         for (int id = 0, wanted = 0; in >> id >> wanted;) filter[id] = wanted != 0;
         PrintOffered();
       }},
      {"rule",
       [this] {
         const unsigned input = Id();
         const int type = Number();
         storage->Retention().SetCameraExpiration(input, type, Number());
       }},
      {"forget", [this] { storage->ForgetDevice(Id()); }},
      {"save", [this] { storage->SaveStorage(); }},
      {"report", [this] { storage->ReportStatus(Word() != "short"); }},
      {"sweep", [this] { Sweep(); }},
      {"kick",
       [this] {
         storage->KickSweeper(false);
         storage->KickSweeper(true);
         out << host.CountLines("Sweeper - ") << '\n';
       }},
      {"clean", [this] { Clean(Word() != "dry"); }},
      {"free", [this] { PrintFree(); }},
      {"remove", [this] { out << (RemoveRecording(Word(), "a/") ? "done\n" : "failed\n"); }},
      {"room", [this] { PrintVolume(storage->GetRecordVolume(&manager, Number())); }},
      {"rooms", [this] { SearchOn(Number()); }},
      {"rest", [this] { ReportOn(); }},
      {"kept", [this] { PlantMany(true); }},
      {"stuck",
       [this] {
         PlantMany(false);
         drives.count = [](const std::string&) { return 1u; };
       }},
      {"slow",
       [this] {
         const std::string what = Word();
         (what == "head" ? headTime : what == "listing" ? listTime : askTime) = Number();
       }},
      {"stamps", [this] { directories.stampsKnown = true; }},
      {"changed",
       [this] {
         const std::string drive = Word();
         ++directories.changes[qv::kelvo::HourDirectory(drive, Ago(Word()) * 1000)];
       }},
      {"cost",
       [this] {
         const std::size_t opened = files.Calls(qv::kelvo::FileCall::Open);
         out << hours.exchange(0) << " hours, " << others.exchange(0) << " others, "
             << opened - std::exchange(openedBefore, opened) << " opened\n";
       }},
      {"reserve", [this] { PrintVolume(storage->GetVolumeToReserve(&manager, Number())); }},
      {"reserved",
       [this] {
         manager.reservedOn = Word();
         manager.reserved = Number();
       }},
      {"written",
       [this] {
         manager.open = planted.at(Word());
         storage->Disk().Opened("a/", manager.open, manager.open + 'i');
       }},
      {"heal",
       [this] {
         storage->HealRecordings();
         PrintHealed("a/ in ");
       }},
      {"unreadable",
       [this] {
         std::string path;
         for (std::string name; in >> name;) storage->NoteUnreadable(path = planted.at(name));
         PrintHealed(path);
       }},
      {"search",
       [this] {
         const std::int64_t first = Ago(Word());
         searched = storage->HoldRecordings(first, Ago(Word()));
       }},
      {"found",
       [this] {
         searched = nullptr;
         PrintHealed(planted.at(Word()));
       }},
      {"stopping", [this] { manager.stopping = Word() == "yes"; }},
  };
};

TEST_P(StorageConversation, IsAnsweredAndRemembered) {
  for (const Step& step : GetParam().steps) {
    SCOPED_TRACE("conversations.txt:" + std::to_string(step.line) + " " + step.command);
    const std::string answer = Take(step);
    if (IsSkipped()) return;
    if (!step.expected.empty()) {
      EXPECT_EQ(answer, step.expected == "-\n" ? "" : step.expected);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Text, StorageConversation,
                         ::testing::ValuesIn(testsupport::ReadConversations(KELVO_CONVERSATIONS)),
                         [](const auto& made) { return made.param.name; });

}  // namespace
}  // namespace qvsvr::kelvo
