#include <algorithm>
#include <cerrno>

#include "tests/plugin/PluginFixture.h"

// Each file operation of the recording path goes wrong once; then the camera's files are looked at.
namespace plugintest {
namespace {

using qv::kelvo::FileCall;
using qv::kelvo::FileFault;

class FileFaults : public SeamTest {
 protected:
  // Records a file that meets the fault, and five minutes later another one that doesn't. Returns
  // false if the fault never fired.
  bool RecordWith(const FileFault& fault) {
    SCOPED_TRACE("error " + std::to_string(fault.error) + " or " +
                 std::to_string(fault.shortBytes) + " bytes at " + std::to_string(fault.first));
    host->ForgetTraffic();
    auto& files = bundle.files;
    files.ClearFaults();
    files.Set(fault);
    const auto firedBefore = files.FaultsFired();
    Start({camera});
    const auto early = MakeFrames(VideoProvider(camera), Now(), 40, Times(4, "IPBPB"), 700);
    GiveAll(early);
    Tick(5 * 60'000);
    files.ClearFaults();
    const bool fired = files.FaultsFired() != firedBefore;

    const auto late = MakeFrames(VideoProvider(camera), Now(), 40, Times(4, "IPBPB"), 700);
    // Settles what is left of the first file, and begins the second one with a whole group.
    GiveAll(late);
    Finish();
    EXPECT_EQ(files.OpenFiles(), 0u);
    EXPECT_EQ(host->Outstanding(), 0);
    CheckFiles(early, late, fired);
    if (fired) CheckLog(fault.call == FileCall::Open);
    boost::filesystem::remove_all(tree.Path("drives/a/2025"));
    return fired;
  }

  void CheckFiles(const std::vector<Frame>& early, const std::vector<Frame>& late, bool fired) {
    const auto recordings = Recordings(Id(camera), fired ? PsEnd::Unclosed : PsEnd::Closed);
    ASSERT_FALSE(recordings.empty());
    // The last file has the whole groups of the late frames; the last group is undecided.
    auto found = recordings.back().Of(kVideoSlot);
    std::erase_if(found, [&](const PsFrame* frame) { return frame->timeMs < TimeOf(late[0]); });
    EXPECT_FALSE(recordings.back().lastFrameCut);
    ExpectFrames(found, std::span(late).first(15));
    // Whatever else is there is a part of the early frames, whole and in order.
    std::size_t at = 0;
    for (const auto* frame : FramesOf(recordings)) {
      if (frame->timeMs >= TimeOf(late[0])) continue;
      while (at < early.size() && TimeOf(early[at]) != frame->timeMs) ++at;
      ASSERT_LT(at, early.size());
      ExpectFrames({frame}, std::span(early).subspan(at, 1));
    }
  }

  // At most one line tells of the fault, and none of another one.
  void CheckLog(bool atOpen) {
    const int write = CountLog("(and PSI) - psfile write error -5.");
    const int open = CountLog("system 00110080 open " + tree.Path("drives/a/"));
    EXPECT_EQ(CountLog("psfile write error"), write);
    EXPECT_EQ(CountLog(".ps error -2"), atOpen ? 1 : 0);
    EXPECT_EQ(CountLog(".ps error -5"), atOpen ? 0 : open);
    EXPECT_LE(open + write, 1);
    // A stream that failed to open says so once more when it has a file again.
    EXPECT_EQ(CountLog("system 00110080 opened "), open);
    wroteLines += write;
    openLines += open;
    EXPECT_EQ(std::ranges::count_if(host->Lines(),
                                    [](const auto& line) { return line.level >= KELVO_LOG_ERROR; }),
              open + write);
  }

  int wroteLines = 0, openLines = 0;
  CameraConfig camera = Camera();
};

TEST_F(FileFaults, EachWriteMayFailAndTheNextFileIsWhole) {
  for (const auto& [error, shortBytes] :
       {std::pair{ENOSPC, 0}, {EIO, 0}, {0, 0}, {0, 5}, {0, 40}, {0, 1500}}) {
    std::size_t n = 1;
    wroteLines = openLines = 0;
    while (RecordWith({FileCall::WriteAt, n, 1, error, static_cast<std::size_t>(shortBytes), {}})) {
      ++n;
      if (HasFailure()) return;
    }
    // The heads of both files and each of three groups and more.
    EXPECT_GT(n, 10u);
    EXPECT_GE(openLines, 2);
    EXPECT_GE(wroteLines, shortBytes < 1000 ? 6 : 3) << "an index write may be that short";
  }
}

TEST_F(FileFaults, EachOpenMayFailAndTheStreamTriesAgain) {
  for (const int error : {ENOSPC, EIO, EMFILE}) {
    openLines = 0;
    for (std::size_t n = 1; RecordWith({FileCall::Open, n, 1, error, 0, {}}); ++n) {
      if (HasFailure()) return;
    }
    EXPECT_GE(openLines, 4);  // media and index of two files
  }
}

TEST_F(FileFaults, OutageIsToldOnceAndRecordingResumesAfterIt) {
  const std::size_t forGood = FileFault::kForGood;
  for (const FileFault& fault : {FileFault{FileCall::Open, 1, forGood, ENOSPC, 0, {}},
                                 {FileCall::Open, 1, forGood, EMFILE, 0, ".psi"},
                                 {FileCall::WriteAt, 1, forGood, EIO, 0, {}},
                                 {FileCall::WriteAt, 1, forGood, ENOSPC, 0, ".ps"}}) {
    SCOPED_TRACE(fault.suffix + " error " + std::to_string(fault.error));
    host->ForgetTraffic();
    bundle.files.Set(fault);
    Start({camera});
    const auto frames = MakeFrames(VideoProvider(camera), Now(), 40, Times(10, "IPBPB"), 700);
    GiveAll(std::span(frames).first(25));
    Sync();
    EXPECT_EQ(CountLog("system 00110080 open "), 1);
    EXPECT_EQ(CountLog("Duplicate file name"), 0);
    // Each message makes a pair and takes it away again, the last one perhaps just now.
    const auto left = [this] {
      try {
        return tree.FilesEndingIn(".ps").size() + tree.FilesEndingIn(".psi").size();
      } catch (const boost::filesystem::filesystem_error&) {
        return std::size_t{1};
      }
    };
    for (int i = 0; left() != 0 && i < 100; ++i) Sync();
    EXPECT_EQ(left(), 0u);
    bundle.files.ClearFaults();
    Sync();  // any message makes the stream try again
    EXPECT_EQ(CountLog("system 00110080 opened "), 1);
    GiveAll(std::span(frames).subspan(25));
    Finish();
    EXPECT_EQ(Recordings().size(), 1u);
    // The group that was undecided when the outage ended is there, too.
    ExpectRecorded(camera, std::span(frames).subspan(20, 25));
    boost::filesystem::remove_all(tree.Path("drives/a/2025"));
  }
}

TEST_F(FileFaults, WriteErrorEndsOneCamerasFileOnly) {
  auto other = Camera(1);
  Start({camera, other});
  bundle.files.Set({FileCall::WriteAt, 2, 1, EIO, 0, "-00110080.ps"});
  const auto mine = MakeFrames(VideoProvider(camera), Now(), 40, Times(10, "IPBPB"), 700);
  const auto others = MakeFrames(VideoProvider(other), Now(), 40, Times(10, "IPBPB"), 700);
  for (std::size_t n = 0; n < mine.size(); ++n) {
    Give(mine[n]);
    Give(others[n]);
  }
  Finish();
  EXPECT_EQ(CountLog("(and PSI) - psfile write error -5."), 1);
  ExpectRecorded(camera, std::span(mine).first(5), kVideoSlot, PsEnd::Unclosed);
  ExpectRecorded(other, std::span(others).first(45), kVideoSlot, PsEnd::Unclosed);
}

}  // namespace
}  // namespace plugintest
