#include <boost/filesystem.hpp>

#include "tests/archiving/BucketFixture.h"
#include "tests/archiving/Loopback.h"

namespace qvArchiving {
namespace {

class BucketQueries : public Bucket {
 protected:
  std::string Names(const std::string& directory) {
    ScannedFileSet files;
    std::string names;
    EXPECT_TRUE(scanner->QueryDirectory(Path(directory), count, bytes, &files, true, error));
    for (const ScannedFile& file : files) names += file.name + "|";
    return names;
  }

  std::uint32_t count = 0;
  std::uint64_t bytes = 0;
};

TEST_F(BucketQueries, ShowsTheTreeOfAnHour) {
  for (const char* year : {"1969", "2023", "2024", "2101", "debris"}) {
    Put(std::string(year) + "/01/02/03/a.ps", "12345");
  }
  Put("2024/01/02/03/b.psi", "123");
  Put("2024/01/02/03/below/c.ps", "1");
  std::set<int> years;
  EXPECT_TRUE(scanner->GetYears(tree.Root(), years, error));
  EXPECT_EQ(years, (std::set<int>{2023, 2024}));
  EXPECT_EQ(Names("2024/01/02/03"), "a.ps|b.psi|");
  EXPECT_EQ(count, 1u);  // one less than there are
  EXPECT_EQ(bytes, 8u);
  EXPECT_EQ(Names("2024/01/02/04"), "");
  EXPECT_EQ(count, kNoSuchDirectory);
  ScannedFileSet files;
  EXPECT_TRUE(scanner->QueryDirectory(Path("2024/01/02/03/"), count, bytes, &files, true, error));
  EXPECT_EQ(files.begin()->path, "2024/01/02/03/a.ps");
  EXPECT_GT(files.begin()->modified, 1'600'000'000);

  const std::string kind = "dddnnfn";  // directory, file or none
  std::size_t row = 0;
  for (const char* path : {"2024", "2024/01/02", "2024/01/02/", "2024/01/02/0", "2022",
                           "2024/01/02/03/a.ps", "2024/01/02/03/a.p"}) {
    EXPECT_EQ(scanner->TestDirectory(Path(path)), kind[row] == 'd') << path;
    EXPECT_EQ(scanner->TestFile(Path(path)), kind[row++] == 'f') << path;
  }
  EXPECT_TRUE(scanner->TestDirectory(tree.Root()));
  std::uint64_t size = 0;
  EXPECT_TRUE(scanner->GetFileSize(Path("2024/01/02/03/b.psi"), size, error));
  EXPECT_EQ(size, 3u);
  EXPECT_FALSE(scanner->GetFileSize(Path("2024/01/02/03/b.ps"), size, error));
  EXPECT_EQ(error, "");

  scanner = Open({{"FullyMountedPath", tree.Root() + "/"}});
  EXPECT_TRUE(scanner->TestFile(Path("2024/01/02/03/a.ps")));
  EXPECT_TRUE(scanner->TestDirectory(tree.Root() + "/"));
}

TEST_F(BucketQueries, RoundTripsOddNames) {
  for (const std::string name : {"a b", "a+b", "a&b=c", "(1)", "100%", "q?x#y", "'\"<>",
                                 "\xC3\xBC\xE2\x82\xAC", "a//b", "~!@$^*;:,[]{}|`", "%2F", "."}) {
    const std::string path = "odd dir+/" + name + ".ps";
    Put(path, name);
    std::uint64_t size = 0;
    EXPECT_TRUE(scanner->GetFileSize(Path(path), size, error)) << name << ' ' << error;
    EXPECT_EQ(size, name.size()) << name;
    EXPECT_EQ(Get(path), name);
    EXPECT_TRUE(scanner->RenameFile(Path(path), Path(path + "2"), error)) << name << ' ' << error;
    EXPECT_FALSE(scanner->TestFile(Path(path))) << name;
    EXPECT_TRUE(scanner->TestFile(Path(path + "2"))) << name;
  }
  EXPECT_TRUE(scanner->DeleteDirectory(Path("odd dir+"), error, true)) << error;
  EXPECT_FALSE(scanner->TestDirectory(Path("odd dir+")));
}

TEST_F(BucketQueries, RemovesWhatIsMeantOnly) {
  for (const char* path : {"2024/01/a", "2024/01/ab", "2024/02/01/c", "20245/d", "e"}) {
    Put(path, path);
  }
  EXPECT_TRUE(scanner->RemoveFile(Path("2024/01/a"), error));
  EXPECT_TRUE(scanner->RemoveFile(Path("2024/01/none"), error));
  EXPECT_EQ(Names("2024/01"), "ab|");
  TargetSpace space;
  EXPECT_TRUE(scanner->GetDiskSpace("anywhere", space, error));
  EXPECT_EQ(space.capacity, 1125899906842624u);
  EXPECT_EQ(space.capacity - space.free, 10u + 12u + 7u + 1u);
  EXPECT_TRUE(scanner->DeleteDirectory(Path("2024"), error, true));
  EXPECT_FALSE(scanner->TestDirectory(Path("2024")));
  EXPECT_TRUE(scanner->TestDirectory(Path("20245")));
  EXPECT_TRUE(scanner->DeleteDirectory(tree.Root(), error, true));
  EXPECT_TRUE(scanner->GetDiskSpace("", space, error));
  EXPECT_EQ(space.free, space.capacity);
  EXPECT_EQ(space.available, space.capacity);
}

TEST_F(BucketQueries, FetchesADirectorysFilesInOrderUntilOneFails) {
  Put("2024/a.psi", "first");
  Put("2024/c.psi", "");
  const std::string local = Path("local/deep");
  std::map<std::string, std::string> names{{"1", "a.psi"}, {"2", "c.psi"}};
  EXPECT_TRUE(scanner->DownloadDirectory(Path("2024"), local, count, bytes, names, error)) << error;
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(bytes, 5u);
  EXPECT_EQ(tree.Read("local/deep/a.psi"), "first");
  names = {{"1", "a.psi"}, {"2", "b.psi"}, {"3", "c.psi"}};
  EXPECT_FALSE(scanner->DownloadDirectory(Path("2024"), local, count, bytes, names, error));
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(host.CountLines(75, "DownloadDirectory, GetObject error: NoSuchKey"), 1u);
  EXPECT_FALSE(boost::filesystem::exists(Path("local/deep/b.psi")));
  for (const char* name : {"..", "../a.psi", "/tmp/x", ""}) {
    names = {{"1", name}};
    EXPECT_FALSE(scanner->DownloadDirectory(Path("2024"), local, count, bytes, names, error));
    EXPECT_TRUE(error.starts_with("no file name")) << error;
  }
}

TEST_F(BucketQueries, StoresFilesThatAreBeingWrittenUnderTheirFinalName) {
  scanner = Open({{"SuppressWorkingFiles", ""}});
  for (const char* name : {"a", "b", "c"}) Put(std::string("2024/") + name + ".workingps", "123");
  EXPECT_EQ(Names("2024"), "a.ps|b.ps|c.ps|");
  std::uint64_t size = 0;
  EXPECT_TRUE(scanner->GetFileSize(Path("2024/c.workingps"), size, error));
  EXPECT_EQ(size, 3u);
  // The two latest count as being written still.
  EXPECT_TRUE(scanner->DeleteDirectory(Path("2024/c.ps"), error, false));
  EXPECT_TRUE(scanner->DeleteDirectory(Path("2024/a.ps"), error, false));
  EXPECT_EQ(Names("2024"), "b.ps|c.ps|");
  EXPECT_TRUE(scanner->RenameFile(Path("2024/c.workingps"), Path("2024/c.ps"), error));
  EXPECT_TRUE(scanner->DeleteDirectory(Path("2024/c.ps"), error, false));
  EXPECT_EQ(Names("2024"), "b.ps|");
}

// What every operation does when the store refuses.
class BucketRefusals : public BucketQueries {
 protected:
  void ExpectRefused(const std::string& name) {
    std::set<int> years;
    std::uint64_t size = 0;
    TargetSpace space;
    const boost::filesystem::path path = Path("2024/a.ps");
    const std::map<std::string, std::string> names{{"1", "a.ps"}};
    struct Case {
      const char* step;
      std::function<bool()> run;
      bool result = false;
    };
    const Case kCases[] = {
        {"GetYears, ListObjects", [&] { return scanner->GetYears(tree.Root(), years, error); }},
        {"QueryDirectory, ListObjects",
         [&] { return scanner->QueryDirectory(path, count, bytes, nullptr, true, error); }},
        {"DownloadDirectory, GetObject",
         [&] {
           return scanner->DownloadDirectory(Path("2024"), Path("l"), count, bytes, names, error);
         }},
        {"TestDirectory, ListObjects", [&] { return scanner->TestDirectory(path); }},
        {"TestDirectory, ListObjects", [&] { return scanner->TestFile(path); }},
        {"DeleteDirectory, ListObjects",
         [&] { return scanner->DeleteDirectory(path, error, true); }, true},
        {"RemoveFile, ListObjects", [&] { return scanner->RemoveFile(path, error); }, true},
        {"RenameFile, PutObject", [&] { return scanner->RenameFile(path, Path("b"), error); }},
        {"GetDiskSpace, ListObjects", [&] { return scanner->GetDiskSpace("", space, error); }},
        {"GetFileSize, ListObjects", [&] { return scanner->GetFileSize(path, size, error); }},
    };
    for (const Case& row : kCases) {
      host.ForgetTraffic();
      EXPECT_EQ(row.run(), row.result) << row.step;
      EXPECT_EQ(host.CountLines(75, std::string("] ") + row.step + " error: " + name), 1u)
          << row.step;
    }
    for (const auto& line : host.Lines()) EXPECT_EQ(line.text.find(secret), std::string::npos);
  }
};

TEST_F(BucketRefusals, TellOfAMissingBucket) {
  bucket += "-none";
  scanner = Open();
  ExpectRefused("NoSuchBucket");
  EXPECT_FALSE(scanner->TestDirectory(tree.Root()));
}

TEST_F(BucketRefusals, TellOfAWrongKey) {
  secret = "wrong-secret-key";
  scanner = Open();
  ExpectRefused("SignatureDoesNotMatch");
  EXPECT_FALSE(scanner->TestDirectory(tree.Root()));
  EXPECT_EQ(host.CountLines(75, "TestDirectory, GetBuckets error: SignatureDoesNotMatch"), 1u);
  EXPECT_FALSE(scanner->CreateDirectories(tree.Root(), error));
  EXPECT_EQ(host.CountLines(75, "CreateDirectories, CreateBucket error: SignatureDoesNotMatch"),
            1u);
}

TEST_F(BucketRefusals, TellOfAServerThatIsAway) {
  {
    const ScriptedServer gone([](const std::string&) { return std::string(); });
    RedirectRequests(gone.Url());
  }
  scanner = Open();
  ExpectRefused(" curlCode: 7, Couldn't connect to server");
  EXPECT_EQ(error, "curlCode: 7, Couldn't connect to server");
  // What needs no server.
  EXPECT_TRUE(scanner->CreateDirectories(Path("2024/01"), error));
  EXPECT_TRUE(scanner->SetPermissions(Path("2024"), 0755, error));
  EXPECT_EQ(host.CountLines(75, " val=000001ED - NOT IMPLEMENTED"), 1u);
}

}  // namespace
}  // namespace qvArchiving
