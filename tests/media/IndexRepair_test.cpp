#include "media/IndexRepair.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>

#include "media/PSReader.h"
#include "tests/media/PSFileFixture.h"
#include "tests/support/ShakyFiles.h"

namespace qv::kelvo {
namespace {

constexpr std::size_t kFrames = 380, kPage = 4096, kMediaHead = 1978, kIndexHead = 1088;

// What a power cut left of a whole pair.
class CutPair : public PSFileTest {
 protected:
  // Writes the pair and keeps its bytes, as they are before its end or behind it.
  void Make(bool closed) {
    ASSERT_EQ(Create(), kPsOk);
    for (std::size_t n = 0; n < kFrames; ++n) {
      const bool audio = n % 4 == 3;
      const auto type = static_cast<std::uint16_t>(audio ? kFrameAudio : n % 10 == 0 ? 1 : 2);
      auto frame = Frame(audio ? 16 : 0, type, static_cast<UtcMs>(n) * 40,
                         std::to_string(n) + std::string(200 + n * 37 % 1500, 'x'));
      frame.channel = 21;
      ASSERT_EQ(file.WriteFrame(frame), kPsOk);
    }
    if (closed) file.Close();
    frames = testsupport::ReadPs(path).frames;
    media = tree.Read(kMedia);
    index = tree.Read(kIndex);
    file.Close();  // one in use can't be replaced everywhere
  }
  void Leave(const std::string& cutMedia, const std::string& cutIndex) {
    tree.Write(kMedia, cutMedia);
    tree.Write(kIndex, cutIndex);
  }
  [[nodiscard]] RepairResult Mend(const RepairOptions& options = {}) {
    return RepairRecording(platform, path, options);
  }
  // The frames whose bytes are all there.
  [[nodiscard]] std::vector<std::string> Intact(const std::string& cutMedia) const {
    std::vector<std::string> intact;
    for (const auto& frame : frames) {
      if (cutMedia.size() < frame.offset + frame.total) break;
      if (cutMedia.compare(frame.offset, frame.total, media, frame.offset, frame.total) != 0) {
        continue;
      }
      intact.emplace_back(frame.payload.begin(), frame.payload.end());
    }
    return intact;
  }
  // Plays the file from its first frame to its last.
  [[nodiscard]] std::vector<std::string> Played() {
    std::vector<std::string> played;
    PSReader reader(files);
    PsFileInfo read;
    if (reader.Open(path) != kPsOk || reader.GetFileInfo(read) != kPsOk) return played;
    std::vector<std::byte> packet(1 << 16);
    for (std::uint32_t n = 0;; ++n) {
      PSReadFrame frame;
      frame.index = n;
      frame.packet = packet;
      if (reader.NextFrame(frame, 0xFFFFFFFFu) != kPsOk) return played;
      const auto* const bytes = reinterpret_cast<const char*>(packet.data());
      played.emplace_back(bytes + 32, bytes + frame.size);
    }
  }
  void ExpectMended(const char* what, const std::string& cutMedia, const std::string& cutIndex) {
    SCOPED_TRACE(what + (" of " + std::to_string(cutMedia.size())) + " and " +
                 std::to_string(cutIndex.size()));
    Leave(cutMedia, cutIndex);
    const auto intact = Intact(cutMedia);
    EXPECT_LE(Mend().outcome, RepairOutcome::Repaired);
    EXPECT_TRUE(Played() == intact) << Played().size() << " of " << intact.size();
    EXPECT_EQ(Mend().outcome, RepairOutcome::Good);
    EXPECT_EQ(tree.Files().size(), 2u);
  }

  ShakyFiles durable;
  Platform platform{SystemPlatform().clock,
                    SystemPlatform().drives,
                    SystemPlatform().directories,
                    files,
                    durable,
                    SystemPlatform().diskSync};
  std::vector<testsupport::PsFrame> frames;
  std::string media, index;
};

std::string Zeroed(std::string bytes, std::size_t from, std::size_t count) {
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(from),
              std::min(count, bytes.size() - from), '\0');
  return bytes;
}

TEST_F(CutPair, PlaysEveryIntactFrameOnceItIsMended) {
  for (const bool closed : {true, false}) {
    Make(closed);
    for (std::size_t cut = kPage; cut < media.size(); cut += 6 * kPage) {
      ExpectMended("media cut", media.substr(0, cut), index);
      ExpectMended("media cut, index empty", media.substr(0, cut), "");
      ExpectMended("media zero from there on", Zeroed(media, cut, media.size()), index);
    }
    for (const std::size_t size :
         std::initializer_list<std::size_t>{0, 1, 63, 64, 700, 1087, 1088}) {
      ExpectMended("index cut in its head", media, index.substr(0, size));
    }
    ExpectMended("index of zeros", media, std::string(index.size(), '\0'));
    for (std::size_t cut = kIndexHead; cut < index.size(); cut += 499) {
      ExpectMended("index cut", media, index.substr(0, cut));
      ExpectMended("index and media cut", media.substr(0, media.size() * 2 / 3),
                   index.substr(0, cut));
    }
    for (std::size_t page = 0; page < index.size(); page += kPage) {
      ExpectMended("index page zero", media, Zeroed(index, page, kPage));
      ExpectMended("index zero from there on", media, Zeroed(index, page, index.size()));
    }
    for (std::size_t page = 0; page < media.size(); page += 37 * kPage) {
      // In the middle of a pair that ended well nobody looks for it.
      if (!closed || page == 0) ExpectMended("media page zero", Zeroed(media, page, kPage), index);
      ExpectMended("media page zero, index empty", Zeroed(media, page, 2 * kPage), "");
    }
    Leave(media, "");
    EXPECT_TRUE(boost::filesystem::remove(tree.Path(kIndex)));
    EXPECT_TRUE(LooksDamaged(files, path));
    EXPECT_EQ(Mend().frames, kFrames);
    EXPECT_TRUE(Played() == Intact(media));
  }
}

TEST_F(CutPair, BorrowsTheHeadThatItLostFromAnotherRecordingOfTheCamera) {
  descriptors[0].name = "Gate";
  for (auto& descriptor : descriptors) descriptor.channel = 21;
  Make(true);
  tree.Write("0140-100101FF.ps", media);
  tree.Write("0140-100101FF.psi", index);
  Leave(Zeroed(media, 0, kPage), "");
  EXPECT_TRUE(LooksDamaged(files, path));
  const auto sibling = [this] { return tree.Path("0140-100101FF.ps"); };
  EXPECT_EQ(Mend({.sibling = sibling}).outcome, RepairOutcome::Repaired);
  EXPECT_EQ(tree.Read(kMedia).substr(0, kMediaHead), media.substr(0, kMediaHead));
  EXPECT_EQ(testsupport::ReadPs(path).streams[0].channel, 21);  // frames tell four bits of it
}

TEST_F(CutPair, LeavesAGoodPairAndOneThatIsInUseOrGrowsAsTheyAre) {
  Make(true);
  EXPECT_FALSE(LooksDamaged(files, path));
  EXPECT_EQ(Mend().outcome, RepairOutcome::Good);
  const std::string cut = index.substr(0, 5000);
  Leave(media, cut);
  EXPECT_EQ(Mend({.exclusively = [](const auto&) { return false; }}).outcome, RepairOutcome::Busy);
  const auto growing = [this](const auto& exchange) {
    tree.Write(kMedia, media + "more");
    exchange();
    return true;
  };
  EXPECT_EQ(Mend({.exclusively = growing}).outcome, RepairOutcome::Busy);
  // Frames that the media file doesn't lead to any more are worth the old index.
  Leave(media.substr(0, 3) + 'x' + media.substr(4), index);
  EXPECT_EQ(Mend().outcome, RepairOutcome::WouldLose);
  EXPECT_TRUE(tree.Read(kIndex) == index);
  EXPECT_EQ(tree.Files().size(), 2u);
}

TEST_F(CutPair, ReplacesNothingOnAFullDiskAndSurvivesADeathAtEachStep) {
  Make(true);
  const std::string cut = index.substr(0, 5000);
  const auto full = DurableFiles::WriteResult{DurableFiles::WriteStep::Done, 0, 4096};
  durable.writeFailure = &full;
  Leave(media, cut);
  const auto result = Mend();
  EXPECT_EQ(result.outcome, RepairOutcome::Failed);
  EXPECT_EQ(result.error, kRanShort);
  EXPECT_TRUE(tree.Read(kIndex) == cut);
  durable.writeFailure = nullptr;

  for (const bool dies : {true, false}) {
    for (int step = 1; step <= 8; ++step) {
      SCOPED_TRACE(step);
      Leave(media, cut);
      durable.Arm(step, dies);
      try {
        const auto outcome = Mend().outcome;
        EXPECT_TRUE(outcome != RepairOutcome::Failed || tree.Read(kIndex) == cut);
      } catch (const Died&) {
      }
      durable.Arm(0, false);
      EXPECT_LE(Mend().outcome, RepairOutcome::Repaired);
      EXPECT_TRUE(Played() == Intact(media));
      EXPECT_EQ(tree.Files().size(), 2u);
    }
  }
}

}  // namespace
}  // namespace qv::kelvo
