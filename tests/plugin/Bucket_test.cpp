#ifndef _WIN32
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <array>
#include <atomic>
#include <boost/filesystem.hpp>
#include <chrono>
#include <mutex>
#include <thread>

#include "archiving/IScanner.h"
#include "hostkit/SearchXml.h"
#include "tests/plugin/SearchFixture.h"
#include "tests/store/ScriptedStore.h"
#include "tree/BucketFetch.h"

// Footage that lies in a bucket only, searched and played back through the exports.
namespace plugintest {
namespace {

namespace fs = boost::filesystem;

constexpr std::int64_t kSecond = 1000;
constexpr std::int64_t kEvening = 1'750'003'080'000;  // 2025-06-15 15:58:00 UTC, 17:58 local
constexpr std::uint64_t kMediaHead = 1978;

// A download as the store has seen it.
struct Fetch {
  std::string name;  // of the object
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;
};

bool IsIndex(const Fetch& fetch) {
  return fetch.name.ends_with(".psi");
}

// Frames are padded to 64 bytes.
std::uint64_t OnDisk(std::uint64_t packet) {
  return (packet + 63) / 64 * 64;
}

// The plug-in with an archive: a bucket of a scripted store, and what one camera recorded.
class BucketSearch : public SearchTest {
 protected:
  using Turn = testsupport::ScriptedStore::Turn;
  using Request = testsupport::ScriptedStore::Request;
  using Objects = std::map<std::string, std::uint64_t>;  // sizes by name

  BucketSearch() {
    testsupport::RedirectRequests(store.Url());
    testsupport::SetVariable("AWS_MAX_ATTEMPTS", "1");
  }

  // Records and moves it to the bucket, of which the plug-in is told.
  Objects Archive(int groups, std::size_t frameSize, std::int64_t stepMs = 200) {
    frames = MakeFrames(VideoProvider(camera), kEvening, stepMs, Times(groups, "IPBPB"), frameSize);
    Record(camera, frames);
    return MoveToBucket();
  }
  Objects MoveToBucket() {
    Objects sizes;
    Stop();
    for (const std::string& name : qv::kelvo::FilesBelow(tree.Path("drives/a"), "")) {
      const fs::path file = tree.Path("drives/a/" + name);
      if (!file.extension().string().starts_with(".ps")) continue;
      store.Put(name, tree.Read("drives/a/" + name));
      sizes[file.filename().string()] = fs::file_size(file);
    }
    fs::remove_all(tree.Path("drives/a/2025"));
    Start();
    Announce();
    (void)store.TakeRequests();
    return sizes;
  }
  void Announce(int status = 0) {
    const std::string begin = "<qDVR><Archives ID=\"3735552\"><Archive ID=\"4\" ";
    Tell(begin + "Enabled=\"1\" Type=\"5\" MountPoint=\"" + cache +
         "\" Address=\"footage.s3.us-east-1.amazonaws.com\" Username=\"user\""
         " Password=\"kelvotestsecret\"/></Archives></qDVR>");
    ASSERT_TRUE(host->WriteXml(KELVO_WRITE_ACTION, begin + "Status=\"" + std::to_string(status) +
                                                       "\"/></Archives></qDVR>"));
    Sync();
  }
  void StartAgain() {
    Stop();
    Start();
    Announce();
  }
  // What was downloaded since the last call.
  std::vector<Fetch> Fetches() {
    std::vector<Fetch> fetches;
    for (const Request& request : store.TakeRequests()) {
      if (!request.IsFetch()) continue;
      const std::uint64_t end =
          std::min<std::uint64_t>(store.Get(request.key).size(), request.last + 1);
      fetches.push_back({request.key.substr(request.key.rfind('/') + 1), request.first,
                         end - std::min(end, request.first)});
    }
    return fetches;
  }
  // Runs the search until the host stops it at that frame.
  void SearchUntil(int frame) {
    const auto hear = host->onSearch;
    int count = 0;
    host->onSearch = [&](const KelvoHostRequest& heard) {
      hear(heard);
      return heard.SubCode == KELVO_SUB_SEARCH_FRAME && ++count == frame ? 1u : 0u;
    };
    EXPECT_EQ(Search(play).order.back(), 'F');
    host->onSearch = hear;
  }
  // All but the last group, which was undecided.
  void ExpectPlayedWhole() {
    const auto played = Search(play).frames;
    ExpectPlayed(played, std::span(frames).first(played.size()));
    EXPECT_GE(played.size() + 5, frames.size());
  }
  // The bucket as a search sees it, without a plug-in.
  qv::kelvo::TargetList OpenTarget(qv::kelvo::Platform& system) {
    return {qvArchiving::CreateScanner({{"Type", "5"},
                                        {"FullName", "b.s3.us-east-1.x"},
                                        {"FullyMountedPath", cache},
                                        {"UserName", "u"},
                                        {"Password", "p"}},
                                       {}, system)};
  }
  // The name of the one recording that is here, below `cache` and in the bucket.
  [[nodiscard]] std::string Media() const { return qv::kelvo::FilesBelow(cache, ".ps").at(0); }

  const std::string cache = tree.Path("copies");  // where local copies lie
  testsupport::ScriptedStore store;
  const CameraConfig camera = Camera();
  const std::string play = Ask(1, kEvening / 1000 - 10, kEvening / 1000 + 1000, {camera});
  const std::string list = Ask(0, kEvening / 1000 - 10, kEvening / 1000 + 1000, {camera});
  std::vector<Frame> frames;
};

TEST_F(BucketSearch, FetchesWhatIsLookedAtAndPlaysItBackByteForByte) {
  const Objects objects = Archive(140, 400, kSecond);
  ASSERT_EQ(objects.size(), 6u);
  std::uint64_t mediaBytes = 0;
  for (const auto& [name, size] : objects) {
    if (name.ends_with(".ps")) mediaBytes += size;
  }
  const std::int64_t second = kEvening / 1000;

  // A listing needs the indexes and the heads.
  const auto listed = Search(list);
  EXPECT_EQ(hostkit::ParseResults(listed.results.at(0)).rows.at(0).start, second);
  auto fetches = Fetches();
  EXPECT_EQ(fetches.size(), objects.size());
  for (const Fetch& fetch : fetches) {
    EXPECT_EQ(fetch.offset, 0u) << fetch.name;
    EXPECT_EQ(fetch.bytes, IsIndex(fetch) ? objects.at(fetch.name) : kMediaHead) << fetch.name;
  }

  // Pictures come one by one.
  const auto thumbs =
      Search(Ask(1, second - 10, second + 1000, {camera}, {second + 7, second + 402}));
  ExpectPlayed(thumbs.frames, std::array{frames[5], frames[400]});
  fetches = Fetches();
  ASSERT_EQ(fetches.size(), 2u);
  for (std::size_t n = 0; n < 2; ++n) {
    EXPECT_EQ(fetches[n].bytes, OnDisk(thumbs.frames[n].event.Length));
  }

  // Playback reads ahead. One more range is needed wherever a picture was there already.
  const auto all = Search(play);
  const std::size_t kept = all.frames.size();
  ASSERT_GE(kept + 5, frames.size());
  ExpectPlayed(all.frames, std::span(frames).first(kept));
  fetches = Fetches();
  EXPECT_LE(fetches.size(), kept / 151 + 3);  // files
  std::uint64_t bytes = 0;
  for (const Fetch& fetch : fetches) {
    EXPECT_FALSE(IsIndex(fetch)) << fetch.name;
    bytes += fetch.bytes;
  }
  EXPECT_LE(bytes, mediaBytes - 3 * kMediaHead) << "no frame comes twice";

  // From then on it is local, also for a plug-in that starts anew.
  for (int round = 0; round < 2; ++round) {
    ExpectPlayed(Search(play).frames, std::span(frames).first(kept));
    EXPECT_EQ(Search(list).results, listed.results);
    EXPECT_TRUE(Fetches().empty());
    StartAgain();
  }
}

TEST_F(BucketSearch, SearchesOnlyWhatIsAccessibleAndAskedFor) {
  const auto other = Camera(1);
  frames = MakeFrames(VideoProvider(camera), kEvening, kSecond, Times(4, "IPBPB"));
  bundle.clock.SetNow(kEvening);
  Start({camera, other});
  GiveAll(frames);
  GiveAll(MakeFrames(VideoProvider(other), kEvening, kSecond, Times(4, "IPBPB")));
  Finish();
  const std::string name = MoveToBucket().begin()->first;
  const std::string hour = qv::kelvo::HourDirectory("", kEvening);
  for (const std::string& odd :
       {name + "m", std::string("short.ps"), name.substr(0, name.find('.')) + "&#10;forged.ps"}) {
    store.Put(hour + odd, std::string(5000, 'x'));
  }
  Announce(-1);
  EXPECT_TRUE(Search(play).frames.empty());
  Announce(0);
  auto without = play;
  without.insert(without.find("<Devices"),
                 "<Targets><Archive ID=\"4\" Search=\"0\"/><Local Search=\"1\"/></Targets>");
  EXPECT_TRUE(Search(without).frames.empty());
  EXPECT_TRUE(Fetches().empty());
  EXPECT_FALSE(Search(play).frames.empty());
  EXPECT_EQ(Fetches().size(), 3u) << "an index, a head and one range of the camera asked for";
  // What a drive has of an hour keeps the archives out of it.
  fs::remove_all(cache);
  tree.Write("drives/a/" + hour + "3000-00110080.ps", "x");
  EXPECT_TRUE(Search(play).frames.empty());
  EXPECT_TRUE(Fetches().empty());
  EXPECT_EQ(CountLog("kelvotestsecret"), 0);
}

TEST_F(BucketSearch, StopsWithTheHostAndLeavesNoHalfFrame) {
  Archive(200, 20'000);
  for (const int stopAt : {1, 200, 400}) {
    const int earlier = CountLog("] Download remote=");
    (void)store.TakeRequests();
    SearchUntil(stopAt);
    const int begun = CountLog("] Download remote=") - earlier;
    EXPECT_TRUE(stopAt > 1 || begun == 4) << begun << ", not index, head and two ranges";
    // With one question for each hour, though nothing is known of their tree.
    EXPECT_EQ(std::ranges::count_if(store.TakeRequests(), &Request::IsListing), 2);
    // At once again, while what was stopped may be ending still.
    ExpectPlayedWhole();
    fs::remove_all(cache);
  }
}

// Any part of the local copies may have been cut or lost by an earlier run, and what another
// playback brings down is here in part for a moment.
TEST_F(BucketSearch, BringsDownAnewWhatIsDamaged) {
  Archive(40, 9000);
  ExpectPlayedWhole();
  const std::string media = "copies/" + Media(), index = media + "i";
  const std::size_t middle = testsupport::ReadPs(tree.Path(media)).frames.at(20).offset + 4000;
  constexpr std::size_t kAll = SIZE_MAX;
  const struct {
    const char* what;
    const std::string& file;
    std::size_t from, zeros;  // cut there if there are none
  } cases[] = {{"empty index", index, 0, 0},          {"cut index", index, 5000, 0},
               {"index of zeros", index, 0, kAll},    {"no index", index, kAll, 0},
               {"head of 500 bytes", media, 500, 0},  {"head of zeros", media, 0, kMediaHead},
               {"half a frame", media, middle, kAll}, {"no media", media, kAll, 0}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what);
    std::string copy = tree.Read(row.file);
    fs::remove(tree.Path(row.file));
    if (row.from != kAll) {
      const std::string zeros(std::min(row.zeros, copy.size() - row.from), '\0');
      copy.replace(row.from, zeros.empty() ? kAll : zeros.size(), zeros);
      tree.Write(row.file, copy);
    }
    StartAgain();
    ExpectPlayedWhole();
  }
  for (const auto& file : {media, index}) {
    fs::last_write_time(tree.Path(file), Now() / 1000 - 8 * 86400);
  }
  StartAgain();
  ExpectPlayedWhole();
}

// The cache may trim, and others may remove, what a search has found and even what it plays.
TEST_F(BucketSearch, PlaysOnWhenTheCopiesAreRemovedUnderIt) {
  Archive(120, 900);
  const auto hear = host->onSearch;
  for (const int when : {0, 100, 200}) {
    SCOPED_TRACE(when);
    fs::remove_all(cache);
    int frame = 0;
    host->onSearch = [&](const KelvoHostRequest& heard) {
      hear(heard);
      const bool isResult = heard.SubCode == KELVO_SUB_SEARCH_RESULT;
      if (heard.SubCode == KELVO_SUB_SEARCH_FRAME) ++frame;
      if (when == 0 ? isResult : frame == when) {
        for (const auto& name : qv::kelvo::FilesBelow(cache, "")) {
          boost::system::error_code busy;  // a system may keep what is open
          if (name.find(".ps.") == std::string::npos) fs::remove(cache + "/" + name, busy);
        }
        frame = 10'000;
      }
      return 0u;
    };
    ExpectPlayedWhole();
    ExpectPlayedWhole();  // it can be found again
  }
}

TEST_F(BucketSearch, FetchesNoPositionMoreThanTwiceThoughTheObjectIsDamaged) {
  Archive(120, 900);
  ExpectPlayedWhole();
  const std::size_t whole = Fetches().size();
  const std::string media = Media();
  std::string object = store.Get(media);
  std::fill(object.begin() + 100'000, object.begin() + 400'000, 'x');
  store.Put(media, object);
  fs::remove_all(cache);
  EXPECT_GE(Search(play).frames.size() + 5, frames.size());
  EXPECT_LE(Fetches().size(), 2 * whole);
}

// Several at once, over footage that nobody has fetched yet: all find what one alone finds.
TEST_F(BucketSearch, SearchesAtOnceShareWhatTheyFetch) {
  Archive(120, 900);
  const auto alone = std::ssize(Search(play).frames);
  std::mutex lock;
  std::map<std::uint32_t, std::ptrdiff_t> counts;
  host->onSearch = [&](const KelvoHostRequest& heard) {
    const std::lock_guard guard(lock);
    counts[heard.RequestId] += heard.SubCode == KELVO_SUB_SEARCH_FRAME && heard.Length != 0;
    return 0u;
  };
  fs::remove_all(cache);
  (void)Fetches();
  store.Follow([](const Request& request) {
    return Turn{.delay = std::chrono::milliseconds(request.IsFetch() ? 20 : 0)};
  });
  std::vector<std::thread> searches;
  for (std::uint32_t id = 1; id <= 8; ++id) {
    searches.emplace_back([&, id] { host->Read(play, id); });
  }
  for (auto& search : searches) search.join();
  EXPECT_EQ(counts.size(), 8u);
  for (const auto& [id, count] : counts) EXPECT_EQ(count, alone) << id;
  const auto fetches = Fetches();
  EXPECT_EQ(std::ranges::count_if(fetches, IsIndex), std::ssize(qv::kelvo::FilesBelow(cache, "i")));
}

TEST_F(BucketSearch, RangesAheadOfACancelledPlaybackHoldNothingUp) {
  Archive(200, 9000);
  store.Follow([](const Request& request) {
    return request.IsFetch() && request.first > 1'000'000 ? Turn{.stallAt = 100} : Turn();
  });
  // Each leaves a range that would keep one of the bucket's four threads.
  for (int n = 0; n < 4; ++n) {
    SearchUntil(140);
    fs::remove_all(cache);
  }
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(Search(list).results.empty());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1800));
}

// Whatever the store does, a search can be cancelled, the worker goes on and the plug-in unloads.
TEST_F(BucketSearch, StoreThatDoesNotAnswerHoldsNobodyUp) {
  using std::chrono::steady_clock;
  constexpr auto kSoon = std::chrono::milliseconds(3000);
  Archive(60, 900);
  testsupport::SetVariable("AWS_MAX_ATTEMPTS", "11");
  for (const Turn& turn :
       {Turn{.delay = std::chrono::minutes(10)}, Turn{.bytesPerSecond = 10}, Turn{.status = 503}}) {
    Announce();
    store.Follow([&turn](const Request&) { return turn; });
    fs::remove_all(cache);
    // The host cancels at the first sign of life.
    host->onSearch = [](const KelvoHostRequest&) { return 1u; };
    auto begin = steady_clock::now();
    host->Read(play, 5);
    EXPECT_LT(steady_clock::now() - begin, kSoon);
    // The worker takes a new configuration meanwhile, and the plug-in ends.
    std::atomic<std::uint32_t> reply{0};
    host->onSearch = [&reply](const KelvoHostRequest&) { return reply.load(); };
    (void)store.TakeRequests();
    std::thread search([&] { host->Read(play, 5); });
    ASSERT_TRUE(store.WaitFor(1, [](const Request&) { return true; }));
    begin = steady_clock::now();
    Announce();
    EXPECT_LT(steady_clock::now() - begin, kSoon);
    reply = 1;
    begin = steady_clock::now();
    search.join();
    Stop();
    EXPECT_LT(steady_clock::now() - begin, kSoon);
    (void)store.TakeRequests();
    Start();
  }
}

TEST_F(BucketSearch, DeadStoreIsAskedOncePerSearch) {
  Archive(60, 900);
  store.Follow([](const Request&) { return Turn{.raw = ""}; });
  testsupport::SetVariable("AWS_MAX_ATTEMPTS", "3");
  Announce();
  EXPECT_TRUE(Search(Ask(0, kEvening / 1000, kEvening / 1000 + 5 * 3600, {camera})).frames.empty());
  EXPECT_EQ(store.TakeRequests().size(), 3u);
}

// The store answers four fetches at once or none.
TEST_F(BucketSearch, FilesOfAnHourComeFourAtATime) {
  constexpr int kFiles = 128;
  for (int n = 0; n < kFiles / 2; ++n) {
    char name[32];
    std::snprintf(name, sizeof name, "0000-0010%02X00.ps", n);
    const std::string key = qv::kelvo::Slashed(qv::kelvo::HourDirectory("", kEvening)) + name;
    store.Put(key, std::string(3000, 'x'));
    store.Put(key + "i", std::string(100, 'x'));
  }
  std::atomic<std::size_t> asked{0};
  std::atomic<bool> alone{false};
  store.Follow([&](const Request& request) {
    const std::size_t enough = request.IsFetch() ? asked++ / 4 * 4 + 4 : 0;
    if (!alone && !store.WaitFor(enough, &Request::IsFetch)) alone = true;
    return Turn();
  });
  const qv::kelvo::TargetList targets = OpenTarget(bundle.platform);
  qv::kelvo::BucketAccess access(bundle.platform);
  EXPECT_TRUE(access.TestLevel(targets[0], qv::kelvo::WithSeparator(cache), kEvening,
                               qv::kelvo::TreeLevel::Year));
  access.FetchHour(targets, kEvening, {});
  EXPECT_EQ(qv::kelvo::FilesBelow(cache, "").size(), std::size_t{kFiles});
  EXPECT_FALSE(alone);
  EXPECT_EQ(store.TakeRequests().size(), 1u + kFiles) << "one listing";
}

TEST_F(BucketSearch, RangeOfARecordingThatIsNotHereBringsItsHeadAlong) {
  store.Put("2025/a.ps", std::string(9000, 'x'));
  const qv::kelvo::TargetList targets = OpenTarget(bundle.platform);
  qv::kelvo::BucketAccess access(bundle.platform);
  const auto fetch = access.Begin(targets[0], cache + "/2025/a.ps", 5000, 1000);
  EXPECT_TRUE(access.Await(targets[0], fetch));
  EXPECT_EQ(
      tree.Read("copies/2025/a.ps"),
      std::string(kMediaHead, 'x') + std::string(5000 - kMediaHead, '\0') + std::string(1000, 'x'));
}

#ifndef _WIN32
// Fetches that are killed at any of their steps hide nothing. KELVO_KILLS says how often.
TEST_F(BucketSearch, FetchesThatAreKilledLeaveNothingThatCounts) {
  Archive(100, 9000);
  ExpectPlayedWhole();
  const std::string media = Media();
  const auto stored = testsupport::ReadPs(cache + "/" + media);
  const char* kills = std::getenv("KELVO_KILLS");
  for (int n = 0; n < (kills == nullptr ? 10 : std::atoi(kills)); ++n) {
    fs::remove_all(cache);
    const pid_t child = fork();
    if (child == 0) {
      qv::kelvo::TestBundle own;
      own.files.before = [calls = 0, last = 1 + n * 37 % 700](auto, const auto&) mutable {
        if (++calls == last) raise(SIGKILL);
      };
      const qv::kelvo::TargetList targets = OpenTarget(own.platform);
      qv::kelvo::BucketAccess access(own.platform);
      access.FetchHour(targets, kEvening, {});
      for (std::size_t at = 0; at + 40 < stored.frames.size(); at += 40) {
        const auto begin = stored.frames[at].offset, end = stored.frames[at + 40].offset;
        const auto fetch = access.Begin(targets[0], cache + "/" + media, begin, end - begin);
        (void)access.Await(targets[0], fetch);
      }
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    SCOPED_TRACE("kill " + std::to_string(n) + " status " + std::to_string(status));
    ExpectPlayedWhole();
    if (HasFailure()) return;
  }
}
#endif

TEST_F(BucketSearch, FileEndsBehindWhatTheStoreStillGave) {
  Archive(200, 900);
  const auto hear = host->onSearch;
  host->onSearch = [&](const KelvoHostRequest& heard) {
    hear(heard);
    if (heard.SubCode == KELVO_SUB_SEARCH_FRAME)
      store.Follow([](auto&) { return Turn{.raw = ""}; });
    return 0u;
  };
  const std::string failing = Search(play).order;
  const auto shown = static_cast<std::size_t>(std::ranges::count(failing, 'F'));
  EXPECT_TRUE(shown > 150 && shown + 5 < frames.size()) << shown;
  EXPECT_EQ(failing,
            "PR" + std::string(shown, 'F') + std::string(frames.size() - 5 - shown, 'E') + "P");
  host->onSearch = hear;
  store.Follow({});
  fs::remove_all(cache);
  ASSERT_FALSE(Search(list).results.empty());
  // The listing's copies stay; the media behind them shrinks to its head.
  store.Put(Media(), store.Get(Media()).substr(0, kMediaHead));
  const std::string cut = Search(play).order;
  EXPECT_EQ(cut.find('F'), std::string::npos) << cut;
  EXPECT_TRUE(cut.ends_with("P")) << cut;
  EXPECT_GE(CountLog("open " + cache), 1);
}

}  // namespace
}  // namespace plugintest
