#include <cerrno>

#include "tests/media/PSFileFixture.h"
#include "tests/support/FaultyFiles.h"

namespace qv::kelvo {
namespace {

constexpr int kFrames = 8;

// One recording under a fault: what the writer answered.
struct Outcome {
  int created = kPsOk;
  int whole = 0;        // frames that were accepted
  int refused = kPsOk;  // answer for the first that wasn't
};

class PSFileFaults : public PSFileTest {
 protected:
  Outcome Record(PSFile& file, const std::string& target, std::uint64_t preallocate) {
    Outcome outcome;
    outcome.created = file.Create(target, info, descriptors, preallocate);
    if (outcome.created != kPsOk) {
      EXPECT_FALSE(file.IsWriting());
      EXPECT_EQ(faulty.OpenFiles(), 0u);
      EXPECT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "late")), kPsBadArgument);
      return outcome;
    }
    for (int i = 0; i < kFrames && outcome.refused == kPsOk; ++i) {
      const std::uint16_t stream = i % 4 == 3 ? 16 : 0;  // neighbours and others
      outcome.refused =
          file.WriteFrame(Frame(stream, i % 4 == 3 ? kFrameAudio : kFrameI, i * 2000, "frame"));
      if (outcome.refused == kPsOk) ++outcome.whole;
    }
    if (outcome.refused != kPsOk) {
      EXPECT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "late")), kPsBadArgument);
    }
    file.Close();
    EXPECT_EQ(faulty.OpenFiles(), 0u);
    return outcome;
  }

  // Runs one recording for each call that can go wrong, checks what is on disk, and records again
  // with the same object. Returns how many faults fired.
  int EachCall(FileCall call, int error, std::size_t shortBytes, std::uint64_t preallocate) {
    PSFile file(faulty);
    for (std::size_t n = 1;; ++n) {
      SCOPED_TRACE("call " + std::to_string(n) + ", error " + std::to_string(error) + ", short " +
                   std::to_string(shortBytes));
      const std::size_t fired = faulty.FaultsFired();
      faulty.Set({call, n, error == ENOSPC ? FileFault::kForGood : 1, error, shortBytes, {}});
      const Outcome outcome = Record(file, path, preallocate);
      faulty.ClearFaults();
      if (faulty.FaultsFired() == fired) {
        EXPECT_EQ(outcome.whole, kFrames);
        return static_cast<int>(n) - 1;
      }
      CheckAnswers(call, outcome);
      if (outcome.created == kPsOk && preallocate == 0) {
        const auto recording = Read(testsupport::PsEnd::Unclosed);
        EXPECT_EQ(recording.frames.size(), static_cast<std::size_t>(outcome.whole));
      }
      EXPECT_EQ(Record(file, tree.Path("next.ps"), 0).whole, kFrames);
      EXPECT_EQ(testsupport::ReadPs(tree.Path("next.ps")).faults, std::vector<std::string>{});
      if (HasFailure()) return 0;
    }
  }

  static void CheckAnswers(FileCall call, const Outcome& outcome) {
    if (outcome.created != kPsOk) {
      EXPECT_EQ(outcome.created, call == FileCall::WriteAt ? kPsWriteFailed : kPsOpenFailed);
    } else if (outcome.refused != kPsOk) {
      EXPECT_EQ(outcome.refused, kPsWriteFailed);
    } else {
      EXPECT_EQ(outcome.whole, kFrames);  // the fault came in Close
    }
  }

  FaultyFiles faulty{SystemPlatform().mediaFiles};
};

TEST_F(PSFileFaults, AnyFailingCallLeavesAFileThatIsGoodUpToTheLastWholeFrame) {
  EXPECT_EQ(EachCall(FileCall::Open, EACCES, 0, 0), 2);
  const int writes = EachCall(FileCall::WriteAt, EIO, 0, 0);
  EXPECT_GT(writes, 3 + 2 * kFrames);
  // Disk full: everything fails from there on, the close too.
  EXPECT_EQ(EachCall(FileCall::WriteAt, ENOSPC, 0, 0), writes);
  for (const std::size_t bytes : {0, 1, 31, 33, 63}) {
    EXPECT_EQ(EachCall(FileCall::WriteAt, 0, bytes, 0), writes) << bytes;
  }
}

TEST_F(PSFileFaults, PreallocationThatFailsIsAFailedOpen) {
  EXPECT_EQ(EachCall(FileCall::SetSize, ENOSPC, 0, 100'000), 4);  // two in Create, two in Close
  EXPECT_GT(EachCall(FileCall::WriteAt, EIO, 0, 100'000), 0);
}

TEST_F(PSFileFaults, AFailedIndexWriteIsTakenBack) {
  PSFile file(faulty);
  ASSERT_EQ(Create(file), kPsOk);
  ASSERT_EQ(file.WriteFrame(Frame(0, kFrameI, 0, "one")), kPsOk);
  faulty.Set({FileCall::WriteAt, 1, 1, 0, 40, ".psi"});  // link written, record torn
  EXPECT_EQ(file.WriteFrame(Frame(0, kFrameP, 40, "two")), kPsWriteFailed);
  EXPECT_EQ(file.GetFrameCount(kWholeFile), 1u);
  file.Close();
  EXPECT_EQ(Read().frames.size(), 1u);  // a pair as if nothing had happened
}

}  // namespace
}  // namespace qv::kelvo
