// Two years of recordings on two volumes, random rules, bookmarks, failures and clock changes: what
// goes and what stays is compared with a model that lists everything and sorts. Builds for
// debugging take two months. KELVO_RETENTION_FILES sets the number of files, of which a day has
// 137, and KELVO_RETENTION_SEED repeats a tree.
#include <algorithm>
#include <cstdlib>
#include <random>
#include <tuple>

#include "tests/storage/RecordingForest.h"

namespace qvsvr::kelvo {
namespace {

namespace fs = boost::filesystem;

unsigned FromEnvironment(const char* name, unsigned otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

// The content of many files of the tree, which are links to it: what is left of them is counted at
// once, and a tree is quickly made.
struct Original {
  std::string path;
  bool ofChannels = false;  // has a head that names an input
  std::int64_t lastTime = 0;
};

struct ModelFile {
  std::string path;
  std::string drive;
  std::int64_t time = 0;
  std::int64_t last = 0;  // later than `time` in the hour that comes twice
  qv::kelvo::StreamID id = 0;
  const Original* original = nullptr;
  bool stuck = false;  // its removal fails, though the media file goes
  bool gone = false;
};

struct ModelBookmark {
  std::int64_t start, end;
  unsigned device;
};

class RetentionModel : public RecordingForest {
 protected:
  // Half a million names come and go: in memory where the system has a place for that.
  RetentionModel() {
    boost::system::error_code error;
    const fs::path own = fs::unique_path("/dev/shm/kelvo_test_%%%%%%%%");
    if (fs::space("/dev/shm", error).available >> 31 == 0 || error) return;
    if (fs::create_directory(own, error)) fs::current_path(inMemory = own);
  }
  ~RetentionModel() override {
    fs::current_path("/");
    if (!inMemory.empty()) fs::remove_all(inMemory);
  }

  static constexpr unsigned kProvider = 0x00120000;
  static constexpr int kDevices = 3;
#if defined(NDEBUG) && !defined(_WIN32)
  static constexpr unsigned kFiles = 100'000;
#else
  static constexpr unsigned kFiles = 8000;
#endif
  static constexpr unsigned kFilesPerDay = 137;
  static constexpr const char* kDeepDrive = "c/deep/er/";  // a network drive of another depth
  static constexpr const char* kDriveNames[] = {"a/", "b/", kDeepDrive};
#if defined(NDEBUG) && !defined(_WIN32)
  static constexpr std::int64_t kSetBack = 1'729'983'600;  // 2024-10-27, an hour before
#else
  static constexpr std::int64_t kSetBack = kNow - 5 * kDay;
#endif
  static constexpr int kOriginals = 30;  // of a drive and input: no file may have many links

  std::int64_t Below(std::int64_t limit) {
    return std::uniform_int_distribution<std::int64_t>(0, limit - 1)(random);
  }

  void MakeOriginals(const std::string& drive) {
    auto& made = originals[drive];
    for (int i = 0; i < 3 * kOriginals; ++i) {
      const std::int64_t last = kNow - Below(span);
      const auto place = static_cast<std::uint8_t>(i / kOriginals);
      const auto path = "of_" + drive + std::to_string(i) + "/";
      made.push_back(place < 2
                         ? Original{PlantReal(path, last, kCamera, 0xFF, place, last), true, last}
                         : Original{Plant(path, last), false, 0});
    }
    drives.count = [this](const std::string& name) {
      std::uint64_t links = 0;
      for (const auto& original : originals[name]) links += fs::hard_link_count(original.path) - 1;
      return links;
    };
  }

  void Build(unsigned count) {
    span = (1 + count / kFilesPerDay) * kDay;
    AddDrives(0);
    drives.capacityGB[kDeepDrive];
    fs::create_directories(kDeepDrive);
    for (const char* name : kDriveNames) MakeOriginals(name);
    // A year of one drive lies on another disk.
    link = qv::kelvo::TreeDirectory("b/", (kNow - span / 2) * 1000, qv::kelvo::TreeLevel::Year);
    link.pop_back();
    fs::create_directories("elsewhere");
    fs::create_directory_symlink(fs::absolute("elsewhere"), link);
    linkIsTold = fs::is_symlink(link);  // not every system does
    for (unsigned i = 0; i < count; ++i) {
      ModelFile file;
      file.drive = kDriveNames[Below(3)];
      file.time = kNow - Below(span) - 600;
      // Some fall into the nights on which the clocks are set forward or back.
      if (Below(10) == 0) file.time = 1'743'292'800 + Below(8 * kHour);
      if (Below(20) == 0) file.time = kSetBack + Below(4 * kHour);
      const auto device = static_cast<unsigned>(Below(kDevices));
      const auto input = static_cast<unsigned>(Below(2));
      const bool wide = Below(4) == 0;
      file.id = kProvider | device << 8 | (wide ? 0x80u : input);
      const std::int64_t kind = wide || Below(4) == 0 ? 2 : std::int64_t{input};
      file.original =
          &originals[file.drive][static_cast<std::size_t>(kind * kOriginals + Below(kOriginals))];
      file.path = qv::kelvo::MakePath(file.drive, file.time * 1000, file.id,
                                      qv::kelvo::CreateDirectories::Yes);
      const auto times = qv::kelvo::TimeOfPath(file.path, file.drive);
      file.time = times.first;
      file.last = times.last;
      boost::system::error_code taken;
      fs::create_hard_link(file.original->path, file.path, taken);
      if (taken) continue;
      fs::create_hard_link(file.original->path + 'i', file.path + 'i');
      file.stuck = Below(100) == 0;
      if (file.stuck) fs::create_directories(file.path + "m/in the way");
      model.push_back(file);
    }
    drives.Fill();
    std::ranges::sort(model, {}, [](const ModelFile& file) {
      return std::make_tuple(file.time, file.drive, file.path);
    });
  }

  void ChooseRules() {
    storage->ForgetDevice(kProvider);
    rules.clear();
    globalDays = Below(3) == 0 ? static_cast<int>(1 + Below(span / kDay)) : 0;
    GlobalRule(globalDays > 0, globalDays);
    for (unsigned device = 0; device < kDevices; ++device) {
      for (unsigned input = 0; input < 2; ++input) {
        if (Below(2) == 0) continue;
        const int days = static_cast<int>(1 + Below(span / kDay));
        rules[kProvider | device << 8 | input] = days;
        const int type = 1 + static_cast<int>(Below(2));
        storage->Retention().SetCameraExpiration(kProvider | device << 8 | input, type, days);
      }
    }
    storage->Retention().AddKnownDevice(kProvider);

    std::string text;
    bookmarks.clear();
    for (auto i = Below(6); i > 0; --i) {
      const std::int64_t start = kNow - Below(span);
      const auto device = static_cast<unsigned>(Below(kDevices));
      bookmarks.push_back({start, start + Below(span / 24), device});
      text += Bookmark(std::to_string(i), start, bookmarks.back().end, device);
    }
    cases = "<Case ID='c'>" + text + "</Case>";
    ApplyCases(cases);
  }

  // The worker is never held up for long: it asks again, and the host tells the cases once more.
  std::string MakeRoom(std::int64_t gigabytes) {
    std::string volume = storage->GetRecordVolume(&manager, gigabytes);
    for (int i = 0; storage->StillSearching() && i < 100'000; ++i) {
      EXPECT_EQ(volume, "");
      PassSteady(20);
      ApplyCases(cases);
      volume = storage->GetRecordVolume(&manager, gigabytes);
    }
    return volume;
  }
  void PassSteady(std::int64_t milliseconds) {
    const auto now = clock.NowMs();
    clock.Advance(milliseconds);
    clock.SetNow(now);
  }

  // No head can be read: what goes now went without one, or by one that was read before.
  void MakeRoomBlindly() {
    files.Set({qv::kelvo::FileCall::Open, 1, 1'000'000, EMFILE, 0, ".ps"});
    (void)MakeRoom(10);
    files.ClearFaults();
    for (ModelFile& file : model) {
      file.gone = !Exists(file.path);
      EXPECT_FALSE(file.gone && Stays(file)) << file.path;
    }
    Compare();
    drives.Fill();
    clock.Advance(6000);
  }

  bool Stays(const ModelFile& file) {
    const std::int64_t now = clock.NowMs() / 1000;
    for (const ModelBookmark& bookmark : bookmarks) {
      const auto lies = [&](std::int64_t time) {
        return time + 300 >= bookmark.start && time < bookmark.end + 120;
      };
      if ((file.id >> 8 & 0xFF) == bookmark.device && (lies(file.time) || lies(file.last))) {
        return true;
      }
    }
    if (globalDays > 0) return now - file.last < globalDays * kDay;
    if (!file.original->ofChannels) return false;
    const auto rule = rules.find(file.id);
    return rule != rules.end() && now - file.original->lastTime < rule->second * kDay;
  }

  // Deletes from the model as room for `gigabytes` is made; the drive that has it then.
  std::string MakeModelRoom(std::int64_t gigabytes) {
    std::map<std::string, std::int64_t> free;
    for (const auto& [name, capacity] : drives.capacityGB) {
      free[name] =
          static_cast<std::int64_t>(capacity) - std::ranges::count(model, name, &ModelFile::drive);
    }
    std::string best;
    for (const auto& [name, room] : free) {
      if (room >= gigabytes && (best.empty() || room > free[best])) best = name;
    }
    const std::int64_t oldest = model.empty() ? 0 : model[0].time - model[0].time % kHour;
    for (std::size_t i = 0; best.empty() && i < model.size(); ++i) {
      ModelFile& file = model[i];
      const std::int64_t hour = file.time - file.time % kHour;
      if ((hour >= clock.NowMs() / 1000 && hour != oldest) || Stays(file)) continue;
      file.gone = true;
      stuckMet |= file.stuck;
      if (++free[file.drive] >= gigabytes && !file.stuck) best = file.drive;
    }
    return best;
  }

  // That exactly those of the model are there: none that has gone, and as many as are left.
  void Compare() {
    for (const ModelFile& file : model) {
      if (!file.gone) continue;
      EXPECT_FALSE(Exists(file.path)) << file.path;
      ++directories.changes[file.path.substr(0, file.path.rfind(qv::kelvo::kPathSeparator) + 1)];
    }
    std::erase_if(model, [](const ModelFile& file) { return file.gone; });
    std::size_t left = 0;
    for (const char* name : kDriveNames) left += drives.count(name);
    ASSERT_EQ(left, model.size());
    EXPECT_TRUE(fs::is_symlink(link) == linkIsTold && fs::is_directory(kDeepDrive));
  }

  fs::path inMemory;
  std::mt19937 random;
  std::int64_t span = 0;  // seconds
  std::map<std::string, std::vector<Original>> originals;
  std::vector<ModelFile> model;
  std::map<qv::kelvo::StreamID, int> rules;
  int globalDays = 0;
  std::vector<ModelBookmark> bookmarks;
  std::string cases;
  std::string link;
  bool linkIsTold = false;
  bool stuckMet = false;
};

TEST_F(RetentionModel, RoomIsMadeByTheOldestThatNothingProtects) {
  const unsigned seed = FromEnvironment("KELVO_RETENTION_SEED", std::random_device()());
  SCOPED_TRACE("KELVO_RETENTION_SEED=" + std::to_string(seed));
  RecordProperty("seed", std::to_string(seed));
  random.seed(seed);
  host.SetThreshold(50);
  const unsigned count = FromEnvironment("KELVO_RETENTION_FILES", kFiles);
  Build(count);
  directories.stampsKnown = true;
  Open();
  const ParsedXml prepared("<Storage ID='3604480'><Disk SupportsPrep='1'><Drives><Drive Name='" +
                           std::string(kDeepDrive) + "'/></Drives></Disk></Storage>");
  EXPECT_TRUE(storage->ApplyDiskPrep(prepared.Root()));
  const auto slow = [this](qv::kelvo::FileCall, const std::string&) { PassSteady(1); };
  for (int round = 0; round < 60 && !model.empty(); ++round) {
    SCOPED_TRACE(round);
    if (round % 5 == 0) ChooseRules();
    // Seconds pass, or days, or the clock is set back.
    const std::int64_t step = Below(4) == 0 ? Below(span / 7) - span / 18 : Below(120);
    clock.SetNow(clock.NowMs() + step * 1000);
    clock.Advance(Below(10'000));
    if (Below(6) == 0) MakeRoomBlindly();
    const std::int64_t wanted = 1 + Below(12 + count / 200);
    stuckMet = false;
    const std::string expected = MakeModelRoom(wanted);
    // A removal that fails may free something all the same, which a further call would find at
    // once.
    if (stuckMet) {
      files.before = nullptr;
    } else {
      files.before = slow;
    }
    EXPECT_EQ(MakeRoom(wanted), expected);
    Compare();
    if (HasFailure()) return;
    drives.Fill();  // by what was recorded meanwhile elsewhere
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
