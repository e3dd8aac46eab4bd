#include <atomic>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <chrono>
#include <tuple>

#include "archiving/AwsCache.h"
#include "archiving/TransferDesk.h"
#include "tests/archiving/TargetFixture.h"
#include "tests/store/ScriptedStore.h"

namespace qvArchiving {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testsupport::HttpReply;
using testsupport::Listing;
using testsupport::SampleBytes;
using Turn = testsupport::ScriptedStore::Turn;
using Request = testsupport::ScriptedStore::Request;

// A store that answers what no store does.
class HostileStore : public Target {
 protected:
  HostileStore() {
    testsupport::RedirectRequests(store.Url());
    scanner = Open();
  }

  // Every answer from now on.
  void Answer(const Turn& turn) {
    store.Follow([turn](const Request&) { return turn; });
  }
  // Fetches a range of the one object.
  std::shared_ptr<IResult> Begin(std::int64_t offset = 0, std::int64_t size = 0) {
    return scanner->Download(Path("a.ps"), Path("a.ps"), offset, size);
  }
  bool Fetch(std::int64_t offset = 0, std::int64_t size = 0) {
    return Finish(Begin(offset, size)) == TransferStatus::COMPLETED;
  }

  testsupport::ScriptedStore store;
};

std::string Repeat(const std::string& text, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += text;
  return out;
}

TEST_F(HostileStore, BadListingsAndBrokenTransportAreErrors) {
  const std::string good = Listing("<Contents><Key>2024/a</Key><Size>1</Size></Contents>");
  const std::string bodies[] = {
      "",
      good.substr(0, good.size() - 5),
      good + good,
      Listing("<Contents></Key></Contents>"),
      Listing(Repeat("<a>", 1000) + Repeat("</a>", 1000)),
      Listing(Repeat("<a/>", 200'000)),
      "<!DOCTYPE a [<!ENTITY b \"" + Repeat("b", 1000) + "\">]><a>&b;</a>",
      "<Other/>",
      "<Error><Code>Strange</Code><Message>m</Message></Error>",
      std::string(20u << 20, ' '),
  };
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  std::vector<std::string> replies = {
      "",
      ok,
      ok + "Content-Length: 500\r\n\r\n<ListBucketResult/>",
      ok + "Content-Length: -1\r\n\r\n<ListBucketResult>",
      ok + "Transfer-Encoding: chunked\r\n\r\nFFFFFFFF\r\n<a/>",
      ok + Repeat("X-A: " + std::string(1000, 'a') + "\r\n", 1000) + "\r\n",
      "HTTP/1.1 301 Moved\r\nLocation: http://127.0.0.1:1/\r\nContent-Length: 0\r\n\r\n",
      "\x01\x02\x03" + HttpReply(good),
  };
  for (const std::string& body : bodies) replies.push_back(HttpReply(body));
  for (const std::string& reply : replies) {
    SCOPED_TRACE(reply.substr(0, 200));
    Answer({.raw = reply});
    host.ForgetTraffic();
    EXPECT_EQ(Do("list", {"2024"}).substr(0, 2), "no");
    EXPECT_EQ(host.CountLines(75, "QueryDirectory, ListObjects error: "), 1u);
  }
}

TEST_F(HostileStore, DownloadThatDoesNotComeWholeLeavesTheLocalCopyAsItWas) {
  const std::string content = SampleBytes(12u << 20);
  store.Put("a.ps", content);
  const std::tuple<const char*, Turn, int> cases[] = {
      {"cut", {.cutAt = 100}, 1},
      {"cut in the third part", {.cutAt = 1000}, 3},
      {"refused", {.status = 403}, 1},
      {"busy", {.status = 503}, 1},
      {"shorter than announced", {.length = 1000}, 1},
      {"longer than asked for",
       {.raw = HttpReply(std::string(9000, 'x'), "206 x\r\nContent-Range: bytes 0-99/100")},
       1},
      {"larger than any object",
       {.raw = HttpReply("x", "206 x\r\nContent-Range: bytes 0-0/4611686018427387904")},
       1},
      {"closed", {.raw = ""}, 1}};
  const std::tuple<std::int64_t, std::int64_t> ranges[] = {{0, 0}, {0, 1978}, {3000, 11 << 20}};
  for (const auto& [what, turn, from] : cases) {
    for (const auto& [offset, size] : ranges) {
      if (from > 1 && size == 1978) continue;
      // A request that is given up may still come when the next ones are being asked.
      const auto answers = std::make_shared<std::atomic<int>>(0);
      store.Follow([answers, turn = turn, from = from](const Request&) {
        return ++*answers >= from ? turn : Turn();
      });
      for (const bool there : {true, false}) {
        SCOPED_TRACE(std::string(what) + ' ' + std::to_string(offset));
        if (there) tree.Write("a.ps", "local");
        *answers = 0;
        EXPECT_EQ(Finish(Begin(offset, size)), TransferStatus::FAILED);
        EXPECT_EQ(tree.FilesEndingIn("s"), std::vector<std::string>(there ? 1 : 0, "a.ps"));
        EXPECT_TRUE(tree.Read("a.ps") == (there ? "local" : ""));
        boost::filesystem::remove(Path("a.ps"));
      }
    }
  }
  store.Follow({});
  EXPECT_TRUE(Fetch());
  EXPECT_TRUE(tree.Read("a.ps") == content);
  // Nor does one that can't be written. Its end comes first: no frame begins that isn't whole.
  tree.Write("a.ps", std::string(40'000, '.'));
  bundle.files.Set({qv::kelvo::FileCall::WriteAt, 2, 1, EIO, 0, "a.ps"});
  EXPECT_FALSE(Fetch(5000, 30'000));
  EXPECT_EQ(tree.Read("a.ps").substr(0, 6000), std::string(6000, '.'));
}

TEST_F(HostileStore, StoresClockIsFollowedWhenItDiffersByHours) {
  store.Follow([](const Request& request) {
    const bool follows = request.head.find("X-Amz-Date: 20300102T0304") != std::string::npos;
    return Turn{.raw = follows ? HttpReply(Listing(""))
                               : HttpReply("<Error><Code>RequestTimeTooSkewed</Code></Error>",
                                           "403 x\r\nDate: Wed, 02 Jan 2030 03:04:05 GMT")};
  });
  EXPECT_EQ(Do("list", {"2024"}), "no such directory, 0 bytes");
  EXPECT_EQ(store.TakeRequests().size(), 2u);
}

TEST_F(HostileStore, SlowStoreIsWaitedForAndASilentOneIsGivenUp) {
  const std::string content = SampleBytes(40'000);
  store.Put("a.ps", content);
  Answer({.bytesPerSecond = 100'000});
  EXPECT_TRUE(Fetch());
  EXPECT_TRUE(tree.Read("a.ps") == content);
  Answer({.stallAt = 10});
  const auto result = Begin();
  EXPECT_EQ(Finish(result), TransferStatus::FAILED);
  result->GetLastError(error);
  EXPECT_EQ(error, "curlCode: 28, Timeout was reached");
  // What was cancelled can be repeated.
  const auto cancelled = Begin();
  ASSERT_TRUE(store.WaitFor(3, &Request::IsFetch));
  cancelled->Cancel();
  EXPECT_EQ(Finish(cancelled), TransferStatus::CANCELED);
  store.Follow({});
  EXPECT_EQ(Finish(scanner->RetryDownload(cancelled)), TransferStatus::COMPLETED);
}

// Results may be asked when their scanner is gone. With the SDK they only end since it cancels
// them.
TEST_F(HostileStore, ScannerEndsSoonWhateverItsStoreDoes) {
  testsupport::SetVariable("AWS_MAX_ATTEMPTS", "30");
  store.Put("a.ps", SampleBytes(100'000));
  for (const Turn& turn : {Turn{.stallAt = 10}, Turn{.bytesPerSecond = 10}, Turn{.status = 503}}) {
    Answer(turn);
    scanner = Open({{"CacheEnable", ""}});
    std::vector<std::shared_ptr<IResult>> results;
    for (int n = 0; n < 12; ++n) {
      const std::string local = Path("local/" + std::to_string(n));
      results.push_back(scanner->Download(Path("a.ps"), local, n % 3, 50'000));
    }
    bool found = true;
    scanner->InBackground(
        [&found, asked = scanner.get(), this] { found = asked->TestDirectory(Path("2024")); });
    (void)store.TakeRequests();
    ASSERT_TRUE(store.WaitFor(turn.status != 0 ? 3 : 0, &Request::IsFetch));
    const auto begin = steady_clock::now();
    scanner.reset();
    for (const auto& result : results) EXPECT_EQ(Finish(result), TransferStatus::CANCELED);
    EXPECT_LT(steady_clock::now() - begin, milliseconds(2500));
    EXPECT_FALSE(found);
    EXPECT_TRUE(tree.Files().empty());
  }
  testsupport::SetVariable("AWS_MAX_ATTEMPTS", "1");
}

TEST_F(HostileStore, FetchOfMoreThanThereMayBeEnds) {
  store.Put("a.ps", SampleBytes(100'000));
  Answer({.bytesPerSecond = 50'000});
  const auto desk = TransferDesk::Of(*scanner);
  const auto ticket = desk->Fetch(scanner, {Path("a.ps"), 0, 0, 10'000, {}});
  while (!ticket.WaitFor(milliseconds(300))) {
  }
  EXPECT_FALSE(ticket.Succeeded());
  EXPECT_TRUE(tree.Files().empty());
}

TEST_F(HostileStore, RangesStayInMemoryUpToABoundUntilTheyAreReleased) {
  constexpr std::size_t kRange = 5u << 20;
  const std::string content = SampleBytes(kRange + 1);
  store.Put("a.ps", content);
  std::vector<std::shared_ptr<IResult>> results;
  for (int n = 0; n < 14; ++n) {
    results.push_back(Begin(1, kRange));
    ASSERT_EQ(Finish(results.back()), TransferStatus::COMPLETED);
    const auto held = results.back()->Content();
    EXPECT_EQ(held.size(), n < 12 ? kRange : 0) << "64 MiB";
    EXPECT_TRUE(
        std::ranges::equal(held, std::as_bytes(std::span(content).subspan(1, held.size()))));
  }
  for (const auto& result : results) result->ReleaseHandle();
  const auto next = Begin(1, kRange);
  EXPECT_EQ(Finish(next), TransferStatus::COMPLETED);
  EXPECT_EQ(next->Content().size(), kRange);
}

TEST_F(HostileStore, FullDiskLosesItsOldestCopiesAndTheFetchGoesOn) {
  const std::string content = SampleBytes(10'000);
  store.Put("a.ps", content);
  for (int n = 0; n < 20; ++n) {
    const std::string name = "2024/01/01/00/" + std::to_string(n);
    tree.Write(name, std::string(1000, 'x'));
    boost::filesystem::last_write_time(Path(name), clock.NowMs() / 1000 - 1000 + n);
  }
  scanner = Open({{"CacheEnable", ""}});
  int full = 1;  // as this system says it
  const auto& category = boost::system::system_category();
  while (category.default_error_condition(full) != boost::system::errc::no_space_on_device) ++full;
  bundle.files.Set({qv::kelvo::FileCall::WriteAt, 1, 1, full, 0, ".part"});
  EXPECT_TRUE(Fetch());
  EXPECT_EQ(bundle.files.FaultsFired(), 1u);
  EXPECT_EQ(tree.Files().size(), 19u) << "a tenth went";
  EXPECT_FALSE(boost::filesystem::exists(Path("2024/01/01/00/0")));
  // The disk is smaller than the limit: room is made ahead of the fetch.
  bundle.drives.Add(tree.Root() + "/");
  bundle.drives.SetSpace(tree.Root() + "/", {30'000, 2'000, 2'000});
  EXPECT_TRUE(Fetch(5000, 3000));
  EXPECT_LE(tree.Files().size(), 15u);
}

}  // namespace
}  // namespace qvArchiving
