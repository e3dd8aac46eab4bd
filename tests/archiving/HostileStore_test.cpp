#include "tests/archiving/BucketFixture.h"
#include "tests/archiving/Loopback.h"

namespace qvArchiving {
namespace {

// A store that answers what no store does.
class HostileStore : public ScannerFixture {
 protected:
  // Waits for the end of a download.
  std::shared_ptr<IResult> Download(IScanner& scanner, std::int64_t offset = 0) {
    auto result = scanner.Download(Path("a.ps"), Path("a.ps"), offset, 0);
    result->Wait();
    return result;
  }

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
      List("<Contents><Key>&nothing;</Key></Contents>"),
      List("<Contents><Key>&#99999999999;</Key></Contents>"),
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
    const ScriptedServer server([&](const std::string&) { return reply; });
    RedirectRequests(server.Url());
    host.ForgetTraffic();
    EXPECT_FALSE(Open()->QueryDirectory(Path("2024"), count, bytes, nullptr, true, error));
    EXPECT_EQ(host.CountLines(75, "QueryDirectory, ListObjects error: "), 1u);
  }
}

TEST_F(HostileStore, OddEntriesAreTakenForWhatTheySay) {
  const ScriptedServer server([](const std::string&) {
    return HttpReply(
        List("<!-- c --><Contents><Key>2024/&lt;a&gt;&#x20AC;<![CDATA[&]]></Key><Size>-5</Size>"
             "<LastModified>never</LastModified></Contents>"
             "<Contents><Size>99999999999999999999999</Size></Contents>"
             "<Contents><Key>2024/b</Key><Size>7</Size>"
             "<LastModified>2024-02-29T12:34:56.789Z</LastModified></Contents>"
             "<CommonPrefixes/><CommonPrefixes><Prefix>99999999999/</Prefix></CommonPrefixes>"
             "<CommonPrefixes><Prefix>/</Prefix></CommonPrefixes>"));
  });
  RedirectRequests(server.Url());
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
  const ScriptedServer server([](const std::string& head) {
    const bool deep = head.find("prefix=2024%2Fx") != std::string::npos;
    return HttpReply(List(deep ? "<CommonPrefixes><Prefix>2024/</Prefix></CommonPrefixes>"
                               : "<CommonPrefixes><Prefix>2024/</Prefix></CommonPrefixes>"
                                 "<CommonPrefixes><Prefix>2024/x/</Prefix></CommonPrefixes>"));
  });
  RedirectRequests(server.Url());
  EXPECT_TRUE(Open()->DeleteDirectory(Path("2024"), error, true));
  EXPECT_EQ(server.Requests(), 2);
}

TEST_F(HostileStore, TransfersWithImpossibleSizesFail) {
  const std::string begin = "HTTP/1.1 200 OK\r\nContent-Length: ";
  const struct {
    const char* what;
    const char* size;  // announced
    std::string reply;
  } cases[] = {
      {"larger than any object", "4611686018427387904", "x"},
      {"longer than announced", "5", HttpReply("1234567890")},
      {"cut", "5", begin + "5\r\n\r\n12"},
      {"refused", "5", HttpReply("<Error/>", "403 No")},
      {"shorter than announced", "5", HttpReply("123")},
  };
  for (const auto& row : cases) {
    const ScriptedServer server([&](const std::string& head) {
      return head.starts_with("HEAD") ? begin + row.size + "\r\n\r\n" : row.reply;
    });
    RedirectRequests(server.Url());
    tree.Write("a.ps", "local content");
    const auto result = Download(*Open(), 3);
    EXPECT_EQ(result->GetStatus(), TransferStatus::FAILED) << row.what;
    const bool written = row.reply.ends_with("123");  // what is shorter comes whole
    EXPECT_EQ(tree.Read("a.ps"), written ? "loc123content" : "local content") << row.what;
  }
}

}  // namespace
}  // namespace qvArchiving
