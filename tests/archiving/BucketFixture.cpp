#include "tests/archiving/BucketFixture.h"

#include <aws/core/Aws.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cstdlib>
#include <fstream>

namespace qvArchiving {

namespace {

// The owner of the process initialises the SDK; here that is the test.
class Api : public testing::Environment {
 public:
  void SetUp() override {
    setenv("AWS_EC2_METADATA_DISABLED", "true", 1);
    setenv("AWS_RETRY_MODE", "standard", 1);
    setenv("AWS_MAX_ATTEMPTS", "1", 1);
    Aws::InitAPI(options);
  }
  void TearDown() override { Aws::ShutdownAPI(options); }

 private:
  Aws::SDKOptions options;
};

[[maybe_unused]] const auto* const api = testing::AddGlobalTestEnvironment(new Api);

// The value of a line name=value of the server's environment file.
std::string ServerSetting(const std::string& name) {
  std::ifstream file(KELVO_S3_FOLDER "/s3.env");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(name + "=")) return line.substr(name.size() + 1);
  }
  return {};
}

}  // namespace

void RedirectRequests(const std::string& url) {
  setenv("AWS_ENDPOINT_URL_S3", url.c_str(), 1);
}

std::string SampleBytes(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  std::uint32_t state = seed;
  for (char& byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

ScannerProperties ScannerFixture::Properties(const ScannerProperties& more) const {
  ScannerProperties properties = more;
  properties.insert({{"Type", "5"},
                     {"FullName", bucket + ".s3.us-east-1.amazonaws.com"},
                     {"FullyMountedPath", tree.Root()},
                     {"UserName", access},
                     {"Password", secret}});
  return properties;
}

std::shared_ptr<IScanner> ScannerFixture::Open(const ScannerProperties& more,
                                               const ScannerCallback& callback) {
  return CreateScanner(Properties(more), callback, clock);
}

void Bucket::SetUp() {
  access = ServerSetting("access");
  secret = ServerSetting("secret");
  ASSERT_FALSE(access.empty()) << "first: tests/s3/server.sh start " KELVO_S3_FOLDER;
  port = std::atoi(ServerSetting("port").c_str());
  tlsPort = std::atoi(ServerSetting("tls_port").c_str());
  static int count = 0;
  bucket = "kelvo-" + std::to_string(getpid()) + "-" + std::to_string(++count);
  RedirectRequests("http://localhost:" + std::to_string(port));
  setenv("AWS_MAX_ATTEMPTS", "3", 1);  // the server may be busy
  scanner = Open();
  ASSERT_TRUE(scanner->CreateDirectories(tree.Root(), error)) << error;
  setenv("AWS_MAX_ATTEMPTS", "1", 1);  // from here on failures are meant
}

void Bucket::Server(const std::string& verb) {
  const std::string command = KELVO_S3_SCRIPT " " + verb + " " KELVO_S3_FOLDER;
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

TransferStatus Bucket::Finish(const std::shared_ptr<IResult>& result) {
  if (result == nullptr) {
    ADD_FAILURE() << "not started";
    return TransferStatus::FAILED;
  }
  result->Wait();
  return result->GetStatus();
}

void Bucket::Put(const std::string& relative, const std::string& content,
                 const Metadata& metadata) {
  const qv::kelvo::TempTree source;
  source.Write("file", content);
  const auto result = scanner->Upload(source.Path("file"), Path(relative), metadata);
  ASSERT_EQ(Finish(result), TransferStatus::COMPLETED) << relative;
}

std::string Bucket::Get(const std::string& relative) {
  boost::filesystem::remove(Path(relative));
  const auto result = scanner->Download(Path(relative), Path(relative), 0, 0);
  EXPECT_EQ(Finish(result), TransferStatus::COMPLETED) << relative;
  return tree.Read(relative);
}

}  // namespace qvArchiving
