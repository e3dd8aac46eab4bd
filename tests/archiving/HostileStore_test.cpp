#include <atomic>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <chrono>
#include <tuple>

#include "archiving/AwsCache.h"
#include "archiving/TransferDesk.h"
#include "tests/archiving/BucketFixture.h"
#include "tests/store/ScriptedStore.h"

namespace qvArchiving {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testsupport::HttpReply;
using Turn = testsupport::ScriptedStore::Turn;
using Request = testsupport::ScriptedStore::Request;

// A store that answers what no store does.
class HostileStore : public ScannerFixture {
 protected:
  HostileStore() { RedirectRequests(store.Url()); }

  // Every answer from now on.
  void Answer(const Turn& turn) {
    store.Follow([turn](const Request&) { return turn; });
  }
  void AnswerRaw(std::function<std::string(const Request&)> reply) {
    store.Follow([reply = std::move(reply)](const Request& request) {
      Turn turn;
      turn.raw = reply(request);
      return turn;
    });
  }
  TransferStatus Fetch(IScanner& scanner, std::int64_t offset = 0, std::int64_t size = 0) {
    const auto result = scanner.Download(Path("a.ps"), Path("a.ps"), offset, size);
    result->Wait();
    return result->GetStatus();
  }

  testsupport::ScriptedStore store;
  std::uint32_t count = 0;
  std::uint64_t bytes = 0;
  std::string error;
};

std::string Repeat(const std::string& text, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += text;
  return out;
}

std::string List(const std::string& content) {
  return "<?xml version=\"1.0\"?><ListBucketResult xmlns=\"x\">" + content + "</ListBucketResult>";
}

TEST_F(HostileStore, BadListingsAndBrokenTransportAreErrors) {
  const std::string good = List("<Contents><Key>2024/a</Key><Size>1</Size></Contents>");
  const std::string bodies[] = {
      "",
      good.substr(0, good.size() - 5),
      good + good,
      List("<Contents></Key></Contents>"),
      List(Repeat("<a>", 1000) + Repeat("</a>", 1000)),
      List(Repeat("<a/>", 200'000)),
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
    AnswerRaw([&](const Request&) { return reply; });
    host.ForgetTraffic();
    EXPECT_FALSE(Open()->QueryDirectory(Path("2024"), count, bytes, nullptr, true, error));
    EXPECT_EQ(host.CountLines(75, "QueryDirectory, ListObjects error: "), 1u);
  }
}

TEST_F(HostileStore, OddEntriesAreTakenForWhatTheySay) {
  AnswerRaw([](const Request&) {
    return HttpReply(
        List("<!-- c --><Contents><Key>2024/&lt;a&gt;&#x20AC;<![CDATA[&]]></Key><Size>-5</Size>"
             "<LastModified>never</LastModified></Contents>"
             "<Contents><Size>99999999999999999999999</Size></Contents>"
             "<Contents><Key>2024/b</Key><Size>7</Size>"
             "<LastModified>2024-02-29T12:34:56.789Z</LastModified></Contents>"
             "<CommonPrefixes/><CommonPrefixes><Prefix>99999999999/</Prefix></CommonPrefixes>"
             "<CommonPrefixes><Prefix>/</Prefix></CommonPrefixes>"));
  });
  const auto scanner = Open();
  ScannedFileSet files;
  EXPECT_TRUE(scanner->QueryDirectory(Path("2024"), count, bytes, &files, true, error)) << error;
  std::string told;
  for (const auto& file : files) told += file.name + ' ' + std::to_string(file.modified) + '|';
  EXPECT_EQ(told, " 0|<a>\xE2\x82\xAC& 0|b 1709210096|");
  EXPECT_EQ(std::next(files.begin())->size, 0u);
  std::set<int> years;
  EXPECT_TRUE(scanner->GetYears(tree.Root(), years, error));
  EXPECT_TRUE(years.empty());
  TargetSpace space;
  EXPECT_TRUE(scanner->GetDiskSpace("", space, error));
  EXPECT_EQ(space.free, 0u);
}

TEST_F(HostileStore, DeletingEndsThoughPrefixesTurnInCircles) {
  AnswerRaw([](const Request& request) {
    const bool deep = request.query.find("prefix=2024%2Fx") != std::string::npos;
    return HttpReply(List(deep ? "<CommonPrefixes><Prefix>2024/</Prefix></CommonPrefixes>"
                               : "<CommonPrefixes><Prefix>2024/</Prefix></CommonPrefixes>"
                                 "<CommonPrefixes><Prefix>2024/x/</Prefix></CommonPrefixes>"));
  });
  EXPECT_TRUE(Open()->DeleteDirectory(Path("2024"), error, true));
  EXPECT_EQ(store.TakeRequests().size(), 2u);
}

TEST_F(HostileStore, DownloadThatDoesNotComeWholeLeavesTheLocalCopyAsItWas) {
  const std::string content = SampleBytes(12u << 20);
  store.Put("a.ps", content);
  const std::string large =
      "HTTP/1.1 206 x\r\nContent-Range: bytes 0-0/4611686018427387904\r\n"
      "Content-Length: 1\r\n\r\nx";
  Turn cut, late, refused, busy, shorter, longer, liar, closed;
  cut.cutAt = 100;
  late.cutAt = 1000;
  refused.status = 403;
  busy.status = 503;
  shorter.length = 1000;
  longer.raw = HttpReply(std::string(9000, 'x'), "206 x\r\nContent-Range: bytes 0-99/100");
  liar.raw = large;
  closed.raw = "";
  const std::tuple<const char*, Turn, int> cases[] = {{"cut", cut, 1},
                                                      {"cut in the third part", late, 3},
                                                      {"refused", refused, 1},
                                                      {"busy", busy, 1},
                                                      {"shorter than announced", shorter, 1},
                                                      {"longer than asked for", longer, 1},
                                                      {"larger than any object", liar, 1},
                                                      {"closed", closed, 1}};
  const auto scanner = Open();
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
        EXPECT_EQ(Fetch(*scanner, offset, size), TransferStatus::FAILED);
        EXPECT_EQ(tree.FilesEndingIn("s"), std::vector<std::string>(there ? 1 : 0, "a.ps"));
        EXPECT_TRUE(tree.Read("a.ps") == (there ? "local" : ""));
        boost::filesystem::remove(Path("a.ps"));
      }
    }
  }
  store.Follow({});
  EXPECT_EQ(Fetch(*scanner), TransferStatus::COMPLETED);
  EXPECT_TRUE(tree.Read("a.ps") == content);
}

TEST_F(HostileStore, StoresClockIsFollowedWhenItDiffersByHours) {
  AnswerRaw([](const Request& request) {
    if (request.head.find("X-Amz-Date: 20300102T0304") != std::string::npos) {
      return HttpReply(List("<CommonPrefixes><Prefix>2024/</Prefix></CommonPrefixes>"));
    }
    return HttpReply("<Error><Code>RequestTimeTooSkewed</Code></Error>",
                     "403 x\r\nDate: Wed, 02 Jan 2030 03:04:05 GMT");
  });
  EXPECT_TRUE(Open()->TestDirectory(Path("2024")));
  EXPECT_EQ(store.TakeRequests().size(), 2u);
}

TEST_F(HostileStore, SlowStoreIsWaitedForAndASilentOneIsGivenUp) {
  const std::string content = SampleBytes(40'000);
  store.Put("a.ps", content);
  const auto scanner = Open();
  Turn slow, silent;
  slow.bytesPerSecond = 100'000;
  silent.stallAt = 10;
  Answer(slow);
  EXPECT_EQ(Fetch(*scanner), TransferStatus::COMPLETED);
  EXPECT_TRUE(tree.Read("a.ps") == content);
  Answer(silent);
  const auto result = scanner->Download(Path("a.ps"), Path("a.ps"), 0, 0);
  result->Wait();
  std::string text;
  result->GetLastError(text);
  EXPECT_EQ(text, "curlCode: 28, Timeout was reached");
  // What was cancelled can be repeated.
  const auto cancelled = scanner->Download(Path("a.ps"), Path("a.ps"), 0, 0);
  ASSERT_TRUE(store.WaitFor(3, &Request::IsFetch));
  cancelled->Cancel();
  cancelled->Wait();
  EXPECT_EQ(cancelled->GetStatus(), TransferStatus::CANCELED);
  store.Follow({});
  const auto repeated = scanner->RetryDownload(cancelled);
  repeated->Wait();
  EXPECT_EQ(repeated->GetStatus(), TransferStatus::COMPLETED);
}

TEST_F(HostileStore, ScannerEndsSoonWhateverItsStoreDoes) {
  setenv("AWS_MAX_ATTEMPTS", "30", 1);
  store.Put("a.ps", SampleBytes(100'000));
  Turn stalled, dripping, busy;
  stalled.stallAt = 10;
  dripping.bytesPerSecond = 10;
  busy.status = 503;
  for (const Turn& turn : {stalled, dripping, busy}) {
    Answer(turn);
    auto scanner = Open({{"CacheEnable", ""}});
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
    for (const auto& result : results) {
      result->Wait();
      EXPECT_EQ(result->GetStatus(), TransferStatus::CANCELED);
    }
    EXPECT_LT(steady_clock::now() - begin, milliseconds(2500));
    EXPECT_FALSE(found);
    EXPECT_TRUE(tree.Files().empty());
  }
  setenv("AWS_MAX_ATTEMPTS", "1", 1);
}

TEST_F(HostileStore, EqualWishesShareOneTransferWhichEndsWithTheLast) {
  const std::string content = SampleBytes(100'000);
  store.Put("a.ps", content);
  Turn stalled;
  stalled.stallAt = 50'000;
  Answer(stalled);
  const std::shared_ptr<IScanner> scanner = Open();
  const std::shared_ptr<IScanner> other = Open();  // of the same mounted path
  const auto desk = TransferDesk::Of(*scanner);
  EXPECT_EQ(TransferDesk::Of(*other), desk);
  const TransferDesk::Wish wish{Path("a.ps"), 0, 0, UINT64_MAX, [] { return false; }};
  auto first = desk->Fetch(scanner, wish);
  auto second = desk->Fetch(other, wish);
  ASSERT_TRUE(store.WaitFor(1, &Request::IsFetch));
  first = {};
  EXPECT_FALSE(second.WaitFor(milliseconds(50)));
  store.Follow({});
  while (!second.WaitFor(milliseconds(1000))) {
  }
  EXPECT_TRUE(second.Succeeded());
  EXPECT_EQ(store.TakeRequests().size(), 1u);
  EXPECT_TRUE(tree.Read("a.ps") == content);

  // Nobody waits, or it is larger than it may be: the connection is closed.
  Answer(stalled);
  auto large = wish;
  large.limit = 10'000;
  for (const auto& given : {wish, large}) {
    auto ticket = desk->Fetch(scanner, given);
    ASSERT_TRUE(store.WaitFor(1, &Request::IsFetch));
    if (given.limit == wish.limit) ticket = {};
    while (!ticket.WaitFor(milliseconds(300))) {
    }
    EXPECT_FALSE(ticket.Succeeded());
    (void)store.TakeRequests();
  }
  EXPECT_TRUE(tree.Read("a.ps") == content);
}

TEST_F(HostileStore, FullDiskLosesItsOldestCopiesAndTheFetchGoesOn) {
  const std::string content = SampleBytes(10'000);
  store.Put("a.ps", content);
  for (int n = 0; n < 20; ++n) {
    const std::string name = "2024/01/01/00/" + std::to_string(n);
    tree.Write(name, std::string(1000, 'x'));
    boost::filesystem::last_write_time(Path(name), clock.NowMs() / 1000 - 1000 + n);
  }
  const auto scanner = Open({{"CacheEnable", ""}});
  bundle.files.Set({qv::kelvo::FileCall::WriteAt, 1, 1, ENOSPC, 0, ".part"});
  EXPECT_EQ(Fetch(*scanner), TransferStatus::COMPLETED);
  EXPECT_EQ(bundle.files.FaultsFired(), 1u);
  EXPECT_EQ(tree.Files().size(), 19u) << "a tenth went";
  EXPECT_FALSE(boost::filesystem::exists(Path("2024/01/01/00/0")));
  // The disk is smaller than the limit: room is made ahead of the fetch.
  bundle.drives.Add(tree.Root() + "/");
  bundle.drives.SetSpace(tree.Root() + "/", {30'000, 2'000, 2'000});
  EXPECT_EQ(Fetch(*scanner, 5000, 3000), TransferStatus::COMPLETED);
  EXPECT_LE(tree.Files().size(), 15u);
}

}  // namespace
}  // namespace qvArchiving
