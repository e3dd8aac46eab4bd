#include <boost/filesystem.hpp>
#include <utility>

#include "tests/archiving/BucketFixture.h"

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

  const std::pair<const char*, char> kinds[] = {
      // directory, file or none
      {"2024", 'd'}, {"2024/01/02", 'd'},         {"2024/01/02/", 'd'},      {"2024/01/02/0", 'n'},
      {"2022", 'n'}, {"2024/01/02/03/a.ps", 'f'}, {"2024/01/02/03/a.p", 'n'}};
  for (const auto& [path, kind] : kinds) {
    EXPECT_EQ(scanner->TestDirectory(Path(path)), kind == 'd') << path;
    EXPECT_EQ(scanner->TestFile(Path(path)), kind == 'f') << path;
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
  const auto fetch = [&](const std::map<std::string, std::string>& names) {
    return scanner->DownloadDirectory(Path("2024"), Path("local/deep"), count, bytes, names, error);
  };
  EXPECT_TRUE(fetch({{"1", "a.psi"}, {"2", "c.psi"}})) << error;
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(bytes, 5u);
  EXPECT_EQ(tree.Read("local/deep/a.psi"), "first");
  EXPECT_FALSE(fetch({{"1", "a.psi"}, {"2", "b.psi"}, {"3", "c.psi"}}));
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(host.CountLines(75, "DownloadDirectory, GetObject error: NoSuchKey"), 1u);
  EXPECT_FALSE(boost::filesystem::exists(Path("local/deep/b.psi")));
  for (const char* name : {"..", "../a.psi", "/tmp/x", ""}) {
    EXPECT_FALSE(fetch({{"1", name}}));
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
  for (const char* name : {"a", "b", "c"}) {
    EXPECT_TRUE(scanner->DeleteDirectory(Path("2024/") + name + ".ps", error, false));
  }
  EXPECT_EQ(Names("2024"), "b.ps|c.ps|");
  EXPECT_TRUE(scanner->RenameFile(Path("2024/c.workingps"), Path("2024/c.ps"), error));
  EXPECT_TRUE(scanner->DeleteDirectory(Path("2024/c.ps"), error, false));
  EXPECT_EQ(Names("2024"), "b.ps|");
}

TEST_F(BucketQueries, TellWhyTheStoreRefuses) {
  std::set<int> years;
  std::uint64_t size = 0;
  TargetSpace space;
  const boost::filesystem::path path = Path("2024/a.ps");
  const std::map<std::string, std::string> names{{"1", "a.ps"}};
  const struct {
    const char* step;
    std::function<bool()> run;
    bool result = false;
  } operations[] = {
      {"GetYears, ListObjects", [&] { return scanner->GetYears(tree.Root(), years, error); }},
      {"QueryDirectory, ListObjects",
       [&] { return scanner->QueryDirectory(path, count, bytes, nullptr, true, error); }},
      {"DownloadDirectory, GetObject",
       [&] {
         return scanner->DownloadDirectory(Path("2024"), Path("l"), count, bytes, names, error);
       }},
      {"TestDirectory, ListObjects", [&] { return scanner->TestDirectory(path); }},
      {"TestDirectory, ListObjects", [&] { return scanner->TestFile(path); }},
      {"DeleteDirectory, ListObjects", [&] { return scanner->DeleteDirectory(path, error, true); },
       true},
      {"RemoveFile, ListObjects", [&] { return scanner->RemoveFile(path, error); }, true},
      {"RenameFile, PutObject", [&] { return scanner->RenameFile(path, Path("b"), error); }},
      {"GetDiskSpace, ListObjects", [&] { return scanner->GetDiskSpace("", space, error); }},
      {"GetFileSize, ListObjects", [&] { return scanner->GetFileSize(path, size, error); }},
  };
  const auto expectRefused = [&](const std::string& name) {
    scanner = Open();
    for (const auto& operation : operations) {
      host.ForgetTraffic();
      EXPECT_EQ(operation.run(), operation.result) << operation.step;
      EXPECT_EQ(host.CountLines(75, std::string("] ") + operation.step + " error: " + name), 1u)
          << operation.step;
      EXPECT_EQ(host.CountLines(secret), 0u);
    }
    EXPECT_FALSE(scanner->TestDirectory(tree.Root()));
  };
  const std::string rightBucket = std::exchange(bucket, bucket + "-none");
  expectRefused("NoSuchBucket");
  bucket = rightBucket;
  secret = "wrong-secret-key";
  expectRefused("SignatureDoesNotMatch");
  EXPECT_EQ(host.CountLines(75, "TestDirectory, GetBuckets error: SignatureDoesNotMatch"), 1u);
  EXPECT_FALSE(scanner->CreateDirectories(tree.Root(), error));
  EXPECT_EQ(host.CountLines(75, "CreateDirectories, CreateBucket error: Signature"), 1u);
  RedirectRequests("http://localhost:1");  // nobody listens there
  expectRefused(" curlCode: 7, Couldn't connect to server");
  EXPECT_EQ(error, "curlCode: 7, Couldn't connect to server");
  EXPECT_TRUE(scanner->CreateDirectories(Path("2024/01"), error)) << "needs no server";
}

}  // namespace
}  // namespace qvArchiving
