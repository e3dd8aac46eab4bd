#include <boost/filesystem.hpp>
#include <condition_variable>
#include <mutex>

#include "tests/archiving/BucketFixture.h"
#include "tests/store/ScriptedStore.h"
#include "tests/support/S3Server.h"

namespace qvArchiving {
namespace {

namespace fs = boost::filesystem;
constexpr std::size_t kPart = 5u << 20;
constexpr char kObject[] = "2024/01/02/03/a.ps";

// Gathers what the callback is told and can hold transfers at their first progress.
class Listener {
 public:
  ScannerCallback Callback() {
    return [this](IScanner&, const std::shared_ptr<IResult>& result,
                  const std::map<std::string, std::string>& values) {
      const std::string what = values.at("Result");
      std::unique_lock guard(lock);
      ++told[what == "Status" ? result->GetStatusName(result->GetStatus()) : what];
      changed.notify_all();
      if (what == "Progress") changed.wait(guard, [this] { return !holding; });
    };
  }
  // Begins to hold them, with nothing told so far, or lets them go on.
  void Hold(bool value) {
    const std::lock_guard guard(lock);
    holding = value;
    if (value) told.clear();
    changed.notify_all();
  }
  // How often that was told; waits for so often.
  int Count(const std::string& what, int atLeast = 0) {
    std::unique_lock guard(lock);
    changed.wait_for(guard, std::chrono::seconds(30), [&] { return told[what] >= atLeast; });
    return told[what];
  }

 private:
  std::mutex lock;
  std::condition_variable changed;
  std::map<std::string, int> told;
  bool holding = false;
};

class BucketTransfers : public Bucket {
 protected:
  std::shared_ptr<IResult> Download(std::int64_t offset = 0, std::int64_t size = 0) {
    return scanner->Download(Path(kObject), Path(kObject), offset, size);
  }

  Listener listener;
};

// An object of no bytes is our stand-in's case: the SDK may fail at it, and recordings have a head.
TEST_F(BucketTransfers, RoundTripFilesOfAllKindsOfSizes) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, kPart, kPart + 1, 3 * kPart + 7}) {
    const std::string content = testsupport::SampleBytes(size, static_cast<unsigned>(size));
    Put(kObject, content);
    EXPECT_TRUE(Get(kObject) == content) << size;
    std::uint64_t stored = 1;
    EXPECT_TRUE(scanner->GetFileSize(Path(kObject), stored, error));
    EXPECT_EQ(stored, size);
  }
}

TEST_F(BucketTransfers, TellWhatWasMoved) {
  tree.Write("source", testsupport::SampleBytes(1000));
  scanner = Open({{"CacheEnable", ""}}, listener.Callback());
  EXPECT_EQ(scanner->Upload(Path("none"), Path(kObject), {}), nullptr);
  EXPECT_EQ(host.CountLines(75, "] Upload error: "), 1u);
  EXPECT_EQ(Finish(Download()), TransferStatus::FAILED);
  EXPECT_FALSE(fs::exists(Path(kObject)));
  EXPECT_EQ(listener.Count("Error"), 1);
  EXPECT_EQ(listener.Count("FAILED"), 1);
  auto result = scanner->Upload(Path("source"), Path(kObject), {{"camera", "7"}});
  EXPECT_EQ(Finish(result), TransferStatus::COMPLETED);
  EXPECT_EQ(listener.Count("COMPLETED"), 1);
  EXPECT_GE(listener.Count("Progress"), 1);
  const std::string key = std::string("File key=") + kObject;
  EXPECT_EQ(host.CountLines(0, "Upload" + key + " complete @ 0.00 Mbps size=1000"), 1u);
  EXPECT_EQ(host.CountLines("cache+"), 0u);
  (void)Download();  // without anybody who waits for it
  EXPECT_TRUE(host.WaitForLine("Download" + key));
  result = Download();
  EXPECT_EQ(Finish(result), TransferStatus::COMPLETED);
  EXPECT_EQ(listener.Count("COMPLETED", 3), 3);
  EXPECT_EQ(result->GetBytesTransferred(), 1000u);
  EXPECT_EQ(result->GetBytesTotalSize(), 1000u);
  EXPECT_EQ(result->GetMetadata()["camera"], "7");
  EXPECT_EQ(result->GetId().size(), 36u);
  EXPECT_EQ(result->GetElapsedMs(), 0);  // the clock stands
  EXPECT_EQ(host.CountLines(0, "cache+ file=" + Path(kObject) + " size=1000 count=1 "), 1u);
  EXPECT_EQ(scanner->RetryDownload(result), nullptr);
  EXPECT_EQ(host.CountLines(75, "RetryDownload error: the transfer has not failed"), 1u);
  EXPECT_EQ(scanner->RetryUpload(nullptr), nullptr);
  result->ReleaseHandle();
  EXPECT_EQ(result->GetStatus(), TransferStatus::FAILED);
  result->GetLastError(error);
  EXPECT_EQ(result->GetId() + error, "");
  EXPECT_EQ(scanner->RetryDownload(result), nullptr);
}

TEST_F(BucketTransfers, RangesLandAtTheirPlaceAndLeaveTheRest) {
  const std::string content = testsupport::SampleBytes(2 * kPart + 100);
  Put(kObject, content);
  const struct {
    std::size_t offset, size, moved;
  } cases[] = {{0, 1978, 1978},
               {100, 1, 1},
               {kPart - 1, kPart + 50, kPart + 50},
               {2 * kPart, 5000, 100},
               {2 * kPart + 50, 0, 50}};
  for (const auto& row : cases) {
    std::string expected(3 * kPart, '.');
    tree.Write(kObject, expected);
    const auto result =
        Download(static_cast<std::int64_t>(row.offset), static_cast<std::int64_t>(row.size));
    EXPECT_EQ(Finish(result), TransferStatus::COMPLETED) << row.offset;
    expected.replace(row.offset, row.moved, content, row.offset, row.moved);
    EXPECT_TRUE(tree.Read(kObject) == expected) << row.offset;
  }
  EXPECT_EQ(Finish(Download(2 * kPart + 100, 10)), TransferStatus::FAILED);
  fs::remove(Path(kObject));
  EXPECT_EQ(Finish(Download(10, 20)), TransferStatus::COMPLETED);  // into a new file
  EXPECT_EQ(tree.Read(kObject), std::string(10, '\0') + content.substr(10, 20));
  EXPECT_EQ(Download(-1, 5), nullptr);
}

TEST_F(BucketTransfers, GoOnWhenTheServerComesBack) {
  const std::string content = testsupport::SampleBytes(6 * kPart + 11);
  tree.Write("source", content);
  scanner = Open({{"CacheEnable", ""}}, listener.Callback());
  // Starts a transfer, whose server dies at its first progress.
  const auto interrupt = [&](const std::function<std::shared_ptr<IResult>()>& start) {
    listener.Hold(true);
    auto result = start();
    EXPECT_GE(listener.Count("Progress", 1), 1);
    Server("kill");
    listener.Hold(false);
    EXPECT_EQ(Finish(result), TransferStatus::FAILED);
    EXPECT_EQ(listener.Count("FAILED"), 1);
    return result;
  };
  auto result = interrupt([&] { return scanner->Upload(Path("source"), Path(kObject), {}); });
  Server("resume");
  auto repeated = scanner->RetryUpload(result);
  EXPECT_EQ(Finish(repeated), TransferStatus::COMPLETED);
  EXPECT_EQ(repeated->GetId(), result->GetId());
  EXPECT_EQ(listener.Count("COMPLETED"), 1);

  result = interrupt([&] { return Download(); });
  auto failedAgain = scanner->RetryDownload(result);  // the server is away still
  EXPECT_EQ(Finish(failedAgain), TransferStatus::FAILED);
  EXPECT_EQ(listener.Count("FAILED"), 2);
  EXPECT_EQ(host.CountLines("cache+"), 0u);
  Server("resume");
  clock.Advance(5000);
  repeated = scanner->RetryDownload(failedAgain);
  clock.Advance(1000);
  EXPECT_EQ(Finish(repeated), TransferStatus::COMPLETED);
  EXPECT_LE(repeated->GetElapsedMs(), 1000);
  EXPECT_EQ(listener.Count("COMPLETED"), 1);
  EXPECT_EQ(host.CountLines("cache+"), 1u);
  EXPECT_TRUE(tree.Read(kObject) == content);
}

TEST_F(BucketTransfers, CheckTheCertificateIfAsked) {
  // A port with a certificate that nobody trusts.
  testsupport::RedirectRequests("https://localhost:" + testsupport::S3Setting("tls_port"));
  for (const std::string verify : {"true", "True", ""}) {
    scanner = Open({{"VerifySSL", verify}});
    EXPECT_EQ(scanner->TestDirectory(tree.Root()), verify != "true") << verify;
  }
}

}  // namespace
}  // namespace qvArchiving
