// Random trees, rules, bookmarks and clock changes: what goes and what stays is compared with a
// model that lists everything and sorts. KELVO_RETENTION_FILES sets the size of the trees and
// KELVO_RETENTION_SEED repeats one.
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>

#include "storage/CFileSystem.h"
#include "tests/storage/ParsedXml.h"
#include "tests/storage/RecordingForest.h"

namespace qvsvr::kelvo {
namespace {

unsigned FromEnvironment(const char* name, unsigned otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

struct ModelFile {
  std::string path;
  std::string drive;
  std::int64_t time = 0;
  qv::kelvo::StreamID id = 0;
  bool ofChannels = false;  // has a head that names an input
  std::uint8_t input = 0;
  std::int64_t lastTime = 0;
};

struct ModelBookmark {
  std::int64_t start, end;
  unsigned device;
};

class RetentionModel : public RecordingForest {
 protected:
  static constexpr unsigned kProvider = 0x00120000;
  static constexpr int kDevices = 3;
  static constexpr std::int64_t kSpan = 60 * kDay;

  std::int64_t Below(std::int64_t limit) {
    return std::uniform_int_distribution<std::int64_t>(0, limit - 1)(random);
  }

  void Build(unsigned count) {
    AddDrive("a/", 0);
    AddDrive("b/", 0);
    std::set<std::string> taken;
    for (unsigned i = 0; i < count; ++i) {
      ModelFile file;
      file.drive = drives.names[static_cast<std::size_t>(Below(2))];
      file.time = kNow - Below(kSpan) - 600;
      // Some fall into the night on which the clocks are set forward.
      if (Below(10) == 0) file.time = 1'743'292'800 + Below(8 * kHour);
      const auto device = static_cast<unsigned>(Below(kDevices));
      file.input = static_cast<std::uint8_t>(Below(2));
      const bool wide = Below(4) == 0;
      file.id = kProvider | device << 8 | (wide ? 0x80u : file.input);
      file.ofChannels = !wide && Below(4) != 0;
      if (!taken
               .insert(qv::kelvo::MakePath(file.drive, file.time * 1000, file.id,
                                           qv::kelvo::CreateDirectories::No))
               .second) {
        continue;
      }
      file.lastTime = file.time + Below(300);
      file.path = file.ofChannels
                      ? PlantReal(file.drive, file.time, file.id, 0xFF, file.input, file.lastTime)
                      : Plant(file.drive, file.time, file.id);
      model.push_back(file);
      ++drives.capacityGB[file.drive];
    }
    std::ranges::sort(model, {}, [](const ModelFile& file) {
      return std::make_tuple(file.time, file.drive, file.path);
    });
  }

  void ChooseRules(CFileSystem& storage) {
    storage.ForgetDevice(kProvider);
    rules.clear();
    globalDays = Below(3) == 0 ? static_cast<int>(1 + Below(50)) : 0;
    const ParsedXml xml("<qDVR><Storage ID='327680'><Expiration Type='" +
                        std::to_string(globalDays > 0) + "' Days='" + std::to_string(globalDays) +
                        "'/></Storage></qDVR>");
    bool given = false;
    TiXmlElement reply("Storage");
    storage.ApplyStorageXml(xml.Root(), given, reply);
    for (unsigned device = 0; device < kDevices; ++device) {
      for (unsigned input = 0; input < 2; ++input) {
        if (Below(2) == 0) continue;
        const int days = static_cast<int>(1 + Below(60));
        rules[kProvider | device << 8 | input] = days;
        storage.SetCameraExpiration(0, kProvider, device, input, 1 + static_cast<int>(Below(2)),
                                    days);
      }
    }
    storage.AddKnownDevice(kProvider);

    std::string text = "<Cases ID='393216'><Case ID='c'>";
    bookmarks.clear();
    for (auto i = Below(6); i > 0; --i) {
      const std::int64_t start = kNow - Below(kSpan);
      bookmarks.push_back({start, start + Below(3 * kDay), static_cast<unsigned>(Below(kDevices))});
      const ModelBookmark& made = bookmarks.back();
      text += "<Bookmark ID='" + std::to_string(i) + "' Start='" + std::to_string(made.start) +
              "' End='" + std::to_string(made.end) + "'><Devices ID='" + std::to_string(kProvider) +
              "'><Device Number='" + std::to_string(made.device) +
              "'><Video/></Device></Devices></Bookmark>";
    }
    const ParsedXml cases(text + "</Case></Cases>");
    storage.ApplyCasesXml(cases.Root(), false);
  }

  bool Stays(const ModelFile& file) {
    const std::int64_t now = clock.NowMs() / 1000;
    for (const ModelBookmark& bookmark : bookmarks) {
      if ((file.id >> 8 & 0xFF) == bookmark.device && file.time + 300 >= bookmark.start &&
          file.time < bookmark.end + 120) {
        return true;
      }
    }
    if (globalDays > 0) return now - file.time < globalDays * kDay;
    if (!file.ofChannels) return false;
    const auto rule = rules.find((file.id & ~0xFFu) | file.input);
    return rule != rules.end() && now - file.lastTime < rule->second * kDay;
  }

  // Deletes from the model as room for `gigabytes` is made; the drive that has it then.
  std::string MakeModelRoom(std::int64_t gigabytes) {
    std::map<std::string, std::int64_t> free;
    for (const std::string& name : drives.names) {
      free[name] = static_cast<std::int64_t>(drives.capacityGB[name]) -
                   std::ranges::count(model, name, &ModelFile::drive);
    }
    std::string best;
    for (const auto& [name, room] : free) {
      if (room >= gigabytes && (best.empty() || room > free[best])) best = name;
    }
    const std::int64_t oldest = model.empty() ? 0 : model[0].time - model[0].time % kHour;
    for (std::size_t i = 0; best.empty() && i < model.size();) {
      const std::int64_t hour = model[i].time - model[i].time % kHour;
      if ((hour >= clock.NowMs() / 1000 && hour != oldest) || Stays(model[i])) {
        ++i;
        continue;
      }
      const std::string drive = model[i].drive;
      model.erase(model.begin() + static_cast<std::ptrdiff_t>(i));
      if (++free[drive] >= gigabytes) best = drive;
    }
    return best;
  }

  std::set<std::string> Modelled() const {
    std::set<std::string> paths;
    for (const ModelFile& file : model) paths.insert(file.path);
    return paths;
  }
  std::set<std::string> Found() const {
    std::set<std::string> paths;
    for (const std::string& drive : drives.names) {
      for (const auto& entry : boost::filesystem::recursive_directory_iterator(drive)) {
        if (entry.path().extension() == ".ps") paths.insert(entry.path().string());
      }
    }
    return paths;
  }

  std::mt19937 random;
  std::vector<ModelFile> model;
  std::map<qv::kelvo::StreamID, int> rules;
  int globalDays = 0;
  std::vector<ModelBookmark> bookmarks;
};

TEST_F(RetentionModel, RoomIsMadeByTheOldestThatNothingProtects) {
  const unsigned seed = FromEnvironment("KELVO_RETENTION_SEED", std::random_device()());
  SCOPED_TRACE("KELVO_RETENTION_SEED=" + std::to_string(seed));
  RecordProperty("seed", std::to_string(seed));
  random.seed(seed);
  Build(FromEnvironment("KELVO_RETENTION_FILES", 500));
  host.SetThreshold(50);
  directories.stampsKnown = true;
  CFileSystem storage(core, platform);
  ASSERT_TRUE(storage.LoadStorage());
  for (int round = 0; round < 60 && !model.empty(); ++round) {
    SCOPED_TRACE(round);
    if (round % 5 == 0) ChooseRules(storage);
    // Seconds pass, or days, or the clock is set back.
    const std::int64_t step = Below(4) == 0 ? Below(10 * kDay) - 4 * kDay : Below(120);
    clock.SetNow(clock.NowMs() + step * 1000);
    clock.Advance(Below(10'000));
    const std::int64_t wanted = 1 + Below(12);
    ++directories.generation;  // deletions changed some directories
    const std::string expected = MakeModelRoom(wanted);
    EXPECT_EQ(storage.GetRecordVolume(&manager, wanted), expected);
    ASSERT_EQ(Found(), Modelled());
    // What was recorded meanwhile has taken the room again.
    for (const std::string& name : drives.names) {
      drives.capacityGB[name] = ForestDrives::CountMedia(name);
    }
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
