// Making room on real trees: what protects a recording, what is passed over, what is remembered.
#include <algorithm>

#include "tests/storage/RecordingForest.h"

namespace qvsvr::kelvo {
namespace {

class RoomMaking : public RecordingForest {
 protected:
  RoomMaking() {
    AddDrives(0);
    Open();
    host.ForgetTraffic();
  }
  void KeepInput(int days) { storage->Retention().SetCameraExpiration(kCamera + 5, 1, days); }
  // Recordings of that input, 2000 seconds apart, on the drives by turns; the first one's path.
  std::string PlantKept(int count) {
    std::string first;
    for (int i = count; i-- > 0;) {
      first = PlantReal(i % 2 == 0 ? "a/" : "b/", kNow - 200 * kHour + i * 2000, kCamera, 0xFF, 5,
                        kNow - kDay);
    }
    return first;
  }
  [[nodiscard]] std::size_t Opens() const { return files.Calls(qv::kelvo::FileCall::Open); }
  // From now on each head takes 20 ms to read.
  void SlowDown() {
    files.before = [this](qv::kelvo::FileCall call, const std::string& path) {
      if (call == qv::kelvo::FileCall::Open && path.ends_with(".ps")) clock.Advance(20);
    };
  }
  std::string MakeRoom(std::int64_t gigabytes = 1) {
    return storage->GetRecordVolume(&manager, gigabytes);
  }
};

TEST_F(RoomMaking, RemembersWhatItSawOfAProtectedTree) {
  KeepInput(100);
  for (int i = 1; i <= 20; ++i) {
    PlantReal(i % 2 == 0 ? "a/" : "b/", kNow - i * 7 * kHour, kCamera, 0xFF, 5, kNow - kDay);
  }
  drives.capacityGB["b/"] = 11;
  EXPECT_EQ(MakeRoom(), "b/");
  EXPECT_EQ(directories.lists, 0) << "there is room";
  drives.Fill();
  directories.stampsKnown = true;
  EXPECT_EQ(MakeRoom(), "");
  const std::size_t heads = Opens();
  directories.lists = 0;
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(directories.lists, 0) << "nothing can have changed yet";

  // The next look costs no listing of an hour, and a rule that changes costs no head.
  int hours = 0;
  directories.onList = [&](const std::string& path) {
    hours += path.size() > std::string("a/2025/06/15/").size();
  };
  clock.Advance(6000);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(hours, 0);
  KeepInput(99);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(hours, 20);
  EXPECT_EQ(Opens(), heads);

  // A directory that changed is looked at again.
  Plant("a/", kNow - 14 * kHour + 1);
  ++directories.changes[qv::kelvo::HourDirectory("a/", (kNow - 14 * kHour) * 1000)];
  clock.Advance(6000);
  drives.Fill();
  EXPECT_EQ(MakeRoom(), "a/");
}

TEST_F(RoomMaking, BusyMachineRefusesNobody) {
  KeepInput(100);
  PlantKept(2);
  Plant("b/", kNow - 2 * kHour);
  drives.Fill();
  directories.onList = [this](const std::string&) { clock.Advance(1000); };
  EXPECT_EQ(MakeRoom(), "b/");
}

TEST_F(RoomMaking, LongSearchGoesOnInLaterCallsAndIsExactInTheEnd) {
  KeepInput(100);
  const std::string oldest = PlantKept(40);
  const std::string free = Plant("b/", kNow - 2 * kHour);
  drives.Fill();
  host.ForgetTraffic();
  SlowDown();
  int calls = 0;
  for (; Exists(free) && calls < 100; ++calls) {
    const std::int64_t begin = clock.NowMs();
    const std::string volume = MakeRoom();
    EXPECT_EQ(volume, Exists(free) ? "" : "b/");
    EXPECT_LE(clock.NowMs() - begin, 100);
    // At once again: the worker has its frames to handle first.
    const auto heads = Opens();
    if (Exists(free)) {
      EXPECT_EQ(MakeRoom(), "");
    }
    EXPECT_EQ(Opens(), heads);
    clock.Advance(20);
  }
  EXPECT_GE(calls, 5);
  EXPECT_TRUE(host.Events().empty()) << "nothing was known to be impossible";

  // What was passed over becomes free on the way: it isn't missed.
  directories.onList = [this](const std::string&) { clock.Advance(20); };
  drives.Fill();
  clock.Advance(6000);
  EXPECT_EQ(MakeRoom(), "");
  EXPECT_TRUE(host.Events().empty());
  KeepInput(1);
  std::string volume;
  for (int i = 0; i < 5 && volume.empty(); ++i, clock.Advance(20)) volume = MakeRoom();
  EXPECT_EQ(volume, "a/");
  EXPECT_FALSE(Exists(oldest));

  // Without anything to find that is told as soon as it is known, and once.
  KeepInput(100);
  drives.Fill();
  for (int i = 0; i < 50; ++i, clock.Advance(20)) EXPECT_EQ(MakeRoom(), "");
  EXPECT_EQ(CountEvents("Recording Not Possible"), 1u);
}

TEST_F(RoomMaking, LongSearchDelaysNoReportAndIsFinishedForAReservation) {
  KeepInput(100);
  PlantKept(20);
  Plant("b/", kNow - 2 * kHour);
  drives.Fill();
  host.ForgetTraffic();
  SlowDown();
  // The drives' states are told at once, the oldest when it is known.
  storage->ReportStatus(true);
  EXPECT_EQ(CountEvents("<Storage ID=\"327680\"><Drive "), 1u);
  int steps = 0;
  for (; CountEvents("<Storage Time=") == 0 && steps < 50; ++steps) {
    clock.Advance(20);
    const std::int64_t begin = clock.NowMs();
    storage->ContinueReport();
    EXPECT_LE(clock.NowMs() - begin, 100);
  }
  EXPECT_GE(steps, 3);
  EXPECT_EQ(CountEvents("<Storage Time=\"" + std::to_string(kNow - 2 * kHour)), 1u);

  KeepInput(101);
  EXPECT_EQ(storage->GetVolumeToReserve(&manager, 1), "b/");
}

// A disk that refuses every removal doesn't hold up the worker: one call tries some, the next ones
// the others, and what is to be told is told at the end.
TEST_F(RoomMaking, OneCallTriesOnlySoMuch) {
  struct SlowManager : TestManager {
    explicit SlowManager(qv::kelvo::ManualClock& time) : clock(time) {}
    bool IsBeingWritten(const std::string&) const override {
      clock.Advance(5);
      return false;
    }
    qv::kelvo::ManualClock& clock;
  } slow(clock);
  constexpr int kFiles = 300;
  for (int i = 0; i < kFiles; ++i) WriteFile(Plant("a/", kNow - i * 600 - 600) + "m/in the way");
  drives.count = [](const std::string&) { return 1u; };
  drives.Fill();
  host.ForgetTraffic();
  int calls = 0;
  do {
    EXPECT_EQ(storage->GetRecordVolume(&slow, 1), "");
    EXPECT_EQ(CountEvents("Recording Not Possible"), !storage->StillSearching());
    EXPECT_LE(host.CountLines("GRV rm: "), 30u * static_cast<unsigned>(++calls));
    clock.Advance(20);
  } while (storage->StillSearching() && calls < 100);
  EXPECT_EQ(host.CountLines("GRV rm: "), kFiles);
  EXPECT_EQ(host.CountLines(0, "and 300 rm failures"), 1u);
}

}  // namespace
}  // namespace qvsvr::kelvo
