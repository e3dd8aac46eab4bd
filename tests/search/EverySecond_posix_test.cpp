#include <map>
#include <random>
#include <set>
#include <utility>

#include "search/SearchRequest.h"
#include "search/SearchResult.h"
#include "tests/search/SearchFixture.h"
#include "tests/support/Zone.h"
#include "tree/LocalTime.h"

namespace qvsvr::kelvo {
namespace {

// Random recordings of three cameras over nights in which clocks change, and what a naive reading
// of them finds.
class EverySecond : public SearchTest {
 protected:
  struct Clip {
    int device = 0;
    std::vector<Shot> shots;  // in the order of writing
    bool duplicate = false;
    bool indexed = true;
    UtcMs visit = 0;  // start of the hour in which the walk meets it

    [[nodiscard]] std::int64_t Start() const { return shots.front().Second(); }
    [[nodiscard]] std::vector<Shot> Of(unsigned stream) const {
      std::vector<Shot> own = shots;
      std::erase_if(own, [stream](const Shot& shot) { return shot.stream != stream; });
      return own;
    }
    // One of its streams, or all of it, ends ahead of its start.
    [[nodiscard]] bool RanBack() const {
      const auto endsAhead = [this](unsigned stream) { return Length(Of(stream)) < 0; };
      return Length(shots) < 0 || std::ranges::any_of(kStreams, endsAhead);
    }
  };
  static std::int64_t Length(const std::vector<Shot>& shots) {
    return shots.empty() ? 0 : shots.back().Second() - shots.front().Second();
  }
  using Range = TimeRange;
  static constexpr UtcMs kDayMs = 86'400'000;
  using Pictures = std::vector<std::string>;
  static constexpr std::uint16_t kStreams[] = {0, 1, 16};

  int Pick(int count) { return static_cast<int>(random() % static_cast<unsigned>(count)); }

  // With `jumps` the cameras' clock is set now and then, by up to 70 minutes.
  void Record(UtcMs begin, UtcMs end, bool jumps) {
    for (int device = 0; device < 3; ++device) {
      UtcMs wall = begin + Pick(300'000), offset = 0;
      while (wall < end) {
        Clip clip{device, {}};
        const StreamID id = kDevice | static_cast<StreamID>(device) << 8;
        const std::string path = qv::kelvo::MakePath(files.volumes[0], wall + offset, id,
                                                     qv::kelvo::CreateDirectories::No);
        clip.duplicate = path.ends_with("a.ps");
        for (const UtcMs close = wall + 300'000; wall < close;
             wall += Pick(5) == 0 ? 1'500 + Pick(20'000) : 100 + Pick(400)) {
          const std::uint16_t stream = kStreams[Pick(3)];
          const bool isKey = clip.Of(stream).empty() || Pick(4) == 0;
          const int type = stream == 16 ? 0 : isKey ? 1 : 2;
          const UtcMs now = wall + offset;
          clip.shots.push_back({stream, static_cast<std::uint16_t>(type), now,
                                static_cast<std::uint8_t>(now / 40'000 % 4 << 6)});
          if (Pick(400) == 0) wall += Pick(1'500'000);
          if (jumps && Pick(250) == 0) offset += Pick(8'400'000) - 4'200'000;
        }
        if (boost::filesystem::exists(path)) continue;  // a third file of one name
        EXPECT_EQ(Write(clip.shots, id, 0, false), path);
        clip.indexed = Pick(20) != 0;
        if (!clip.indexed) boost::filesystem::remove(path + "i");
        clips.push_back(clip);
      }
    }
    for (Clip& clip : clips) {
      clip.visit = qv::kelvo::LocalHourStart(begin - 5 * 3'600'000);
      while (qv::kelvo::NextLocalHour(clip.visit) <= clip.shots.front().time) {
        clip.visit = qv::kelvo::NextLocalHour(clip.visit);
      }
    }
    std::ranges::stable_sort(clips, {}, [](const Clip& clip) {
      return std::tuple(clip.visit, clip.duplicate, clip.Start(), clip.device);
    });
  }

  // The frames of the streams that may have some in the range.
  static std::vector<Shot> Selected(const Clip& clip, Range range) {
    std::vector<Shot> selected;
    for (const Shot& shot : clip.shots) {
      const auto own = clip.Of(shot.stream);
      const std::int64_t first = own.front().Second(), last = own.back().Second();
      if (last < first || (last >= range.start && first < range.end)) selected.push_back(shot);
    }
    return selected;
  }

  // What is played of a clip: each stream from the last key frame that isn't behind the first frame
  // of the range, up to the first frame past it; where the clock ran back, each frame of the range
  // with what of its group is ahead of it.
  static std::vector<Shot> PlayedOf(const Clip& clip, Range range) {
    const auto shots = Selected(clip, range);
    std::vector<Shot> played;
    if (clip.RanBack()) {
      std::set<std::size_t> chosen;
      for (std::size_t i = 0; i < shots.size(); ++i) {
        for (std::size_t n = i + 1; range.Has(shots[i].Second()) && n-- > 0;) {
          if (shots[n].stream != shots[i].stream) continue;
          chosen.insert(n);
          if (shots[n].type < 2) break;
        }
      }
      for (const std::size_t i : chosen) played.push_back(shots[i]);
      return played;
    }
    bool reached = false;
    for (const Shot& shot : shots) {
      const bool endsInRange = clip.shots.back().Second() < range.end;
      if (shot.Second() >= range.end && !(reached && endsInRange)) break;
      if (shot.type < 2 && !reached) {
        std::erase_if(played, [&](const Shot& other) { return other.stream == shot.stream; });
      }
      played.push_back(shot);
      reached = reached || shot.Second() >= range.start;
    }
    return reached ? played : std::vector<Shot>{};
  }

  // The clips that a search looks into, in the order in which it does.
  std::vector<const Clip*> Opened(Range range) const {
    std::vector<const Clip*> opened;
    for (const Clip& clip : clips) {
      if (clip.Start() + 300 < range.start || clip.Start() >= range.end + 300) continue;
      opened.push_back(&clip);
    }
    return opened;
  }

  static std::string Told(int device, const Shot& shot) {
    return std::to_string(device) + ":" + shot.Payload();
  }

  Pictures BucketModel(Range range, std::int64_t resolution) const {
    Pictures pictures;
    std::int64_t bucket = -1;
    for (const Clip* clip : Opened(range)) {
      if (clip->Start() + 300 < range.start + (bucket + 1) * resolution) continue;
      for (const Shot& shot : Selected(*clip, range)) {
        const std::int64_t own = (shot.Second() - range.start) / resolution;
        if (shot.type > 1 || !range.Has(shot.Second()) || own == bucket) continue;
        bucket = own;
        pictures.push_back(Told(clip->device, shot));
      }
    }
    return pictures;
  }

  // `moments` of video input 0 of each device.
  Pictures MomentModel(Range range, const std::vector<std::int64_t>& moments) const {
    Pictures pictures;
    std::map<int, std::size_t> answered;
    for (const Clip* clip : Opened(range)) {
      std::string key;
      for (const Shot& shot : Selected(*clip, range)) {
        if (shot.stream != 0) continue;
        if (shot.type == 1) key = Told(clip->device, shot);
        for (auto& n = answered[clip->device]; n < moments.size() && moments[n] <= shot.Second();) {
          ++n;
          if (!key.empty()) pictures.push_back(key);
          key.clear();
        }
      }
    }
    return pictures;
  }

  // What a search plays is the model's, and in the order of time if that is to be so.
  void ExpectPlayed(Range range, int resolution, const std::vector<std::int64_t>& moments,
                    Pictures model, bool inOrder = false) {
    Run(Request(1, range.start, range.end, resolution, Inputs(moments)));
    Pictures came;
    std::int64_t latest = 0;
    for (const Event& event : events) {
      if (event.kind != 'F') continue;
      ASSERT_TRUE(!inOrder || event.request.u.Header.Seconds >= latest) << event.payload;
      latest = event.request.u.Header.Seconds;
      came.push_back(std::to_string(event.request.Source >> 8 & 255) + ":" + event.payload);
    }
    std::ranges::sort(came);
    std::ranges::sort(model);
    ASSERT_EQ(came, model);
  }

  static std::vector<hostkit::SearchInput> Inputs(const std::vector<std::int64_t>& moments = {}) {
    std::vector<hostkit::SearchInput> inputs;
    for (int device = 0; device < 3; ++device) {
      inputs.push_back({.device = device, .number = 0, .moments = moments});
      inputs.push_back({.device = device, .number = 1, .moments = {}});
      inputs.push_back({.device = device, .audio = true, .number = 0, .moments = {}});
    }
    return inputs;
  }

  Pictures RangeModel(Range range) const {
    Pictures pictures;
    for (const Clip* clip : Opened(range)) {
      for (const Shot& shot : PlayedOf(*clip, range)) pictures.push_back(Told(clip->device, shot));
    }
    return pictures;
  }

  // A stream's stretches by the format's rule; or one for each stream, where that is all that is
  // told. Both ends in seconds.
  static std::vector<FileRun> RunsOf(const Clip& clip, unsigned stream, int resolution) {
    const bool inOne = !clip.indexed || (!clip.RanBack() && resolution >= Length(clip.shots));
    std::vector<FileRun> runs;
    const Shot* last = nullptr;
    for (const Shot& shot : clip.Of(stream)) {
      const UtcMs gap = last == nullptr ? 0 : shot.time - last->time;
      const bool goesOn =
          inOne || (last != nullptr && last->flags == shot.flags && gap >= 0 && gap <= 1000 &&
                    (shot.time - gap) / kDayMs == shot.time / kDayMs);
      if (last == nullptr || !goesOn) runs.push_back({0, 0, shot.Second(), 0});
      runs.back().flags |= shot.flags;
      runs.back().last = shot.Second();
      last = &shot;
    }
    return runs;
  }

  void ExpectListed(Range range, int resolution) {
    Run(Request(0, range.start, range.end, resolution, Inputs()));
    // By device, stream and bucket: start, end and flags.
    using Stretch = std::tuple<std::int64_t, std::int64_t, unsigned>;
    std::map<std::tuple<int, int, std::int64_t>, Stretch> model, came;
    const auto bucketOf = [&](std::int64_t second) {
      return (second - range.start) / std::max(resolution, 1);
    };
    for (const Clip* clip : Opened(range)) {
      for (const int stream : kStreams) {
        for (const FileRun& run : RunsOf(*clip, static_cast<unsigned>(stream), resolution)) {
          if (run.first <= run.last && (run.last < range.start || run.first >= range.end)) continue;
          auto& [first, last, flags] =
              model
                  .try_emplace({clip->device, stream, bucketOf(run.first)}, run.first, run.last, 0u)
                  .first->second;
          first = std::min(first, run.first);
          last = std::max(last, run.last);
          flags |= run.flags;
        }
      }
    }
    for (const auto& row : hostkit::ParseResults(ResultText()).rows) {
      const int stream = row.input.number + (row.input.audio ? 16 : 0);
      EXPECT_TRUE(came.try_emplace({row.input.device, stream, bucketOf(row.start)}, row.start,
                                   row.end, row.flags)
                      .second);
    }
    ASSERT_EQ(came, model);
  }

  std::mt19937 random{13};
  std::vector<Clip> clips;
};

TEST_F(EverySecond, IsFoundAndPlayedInTheOrderOfTime) {
  const struct {
    const char* zone;
    std::int64_t change;  // seconds
  } nights[] = {
      {"Europe/Berlin", 1'761'440'400},       {"Europe/Berlin", 1'774'746'000},
      {"America/Havana", 1'762'059'600},      {"America/Havana", 1'772'946'000},
      {"Australia/Lord_Howe", 1'775'314'800}, {"Australia/Lord_Howe", 1'759'591'800},
      {"Antarctica/Troll", 1'761'440'400},    {"Antarctica/Troll", 1'774'746'000},
  };
  for (const auto& night : nights) {
    const qv::kelvo::Zone zone(night.zone);
    for (const bool jumps : {false, true}) {
      boost::filesystem::remove_all(files.volumes[0]);
      clips.clear();
      const std::int64_t first = night.change - 6000, last = night.change + 12'000;
      Record(first * 1000, last * 1000, jumps);
      const bool inOrder = !jumps && std::ranges::none_of(clips, &Clip::duplicate);
      for (int n = 0; n < 8; ++n) {
        const std::int64_t start = n == 0 ? first - 900 : first - 900 + Pick(19'000);
        const std::int64_t end = n == 0 ? last + 900 : start + 1 + Pick(n % 2 == 0 ? 9'000 : 120);
        const Range range{start, end};
        SCOPED_TRACE(night.zone + (" " + std::to_string(jumps)) + " " + std::to_string(start) +
                     " to " + std::to_string(end));
        ExpectPlayed(range, 0, {}, RangeModel(range), inOrder);
        const int resolution = 1 + Pick(600);
        ExpectListed(range, n % 2 == 0 ? 0 : resolution);
        if (resolution < end - start) {
          ExpectPlayed(range, resolution, {}, BucketModel(range, resolution));
        }
        std::vector<std::int64_t> moments(6);
        for (auto& moment : moments) moment = start + Pick(static_cast<int>(end - start));
        std::ranges::sort(moments);
        ExpectPlayed(range, 0, moments, MomentModel(range, moments));
        if (HasFailure()) return;
      }
    }
  }
}

}  // namespace
}  // namespace qvsvr::kelvo
