// Playback of footage that lies in a bucket only, against curl and the same objects.
#include <aws/core/Aws.h>

#include <boost/filesystem.hpp>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "archiving/IResult.h"
#include "archiving/IScanner.h"
#include "bench/Scenarios.h"
#include "bench/SearchTree.h"
#include "platform/Platform.h"

namespace bench {
namespace {

namespace fs = boost::filesystem;
using qvArchiving::IResult;

constexpr int kFiles = 12;  // an hour
constexpr int kFrames = 7500;
constexpr std::uint32_t kFrameBytes = 10'000;  // 2 Mbit/s
constexpr std::size_t kDrivePath = sizeof "drives/0/" - 1;
constexpr std::size_t kUploadsAtOnce = 4;
constexpr std::uint64_t kPart = 5u << 20;  // of a transfer
const std::string kBucket = "kelvobench";
const std::string kAddress = kBucket + ".s3.us-east-1.amazonaws.com";

std::string Setting(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) throw std::runtime_error(std::string(name) + " isn't set");
  return value;
}

// The bucket on the S3 server that the environment tells of (see run.sh).
class Store {
 public:
  Store() : user(Setting("AWS_ACCESS_KEY_ID")), password(Setting("AWS_SECRET_ACCESS_KEY")) {
    Aws::InitAPI({});
    scanner = qvArchiving::CreateScanner({{"Type", "5"},
                                          {"FullName", kAddress},
                                          {"FullyMountedPath", copies.string()},
                                          {"UserName", user},
                                          {"Password", password}},
                                         {}, qv::kelvo::SystemPlatform());
    std::string error;
    if (!scanner->CreateDirectories(copies, error)) throw std::runtime_error(error);
    log.open(Setting("KELVO_BENCH_S3_LOG"));
    log.seekg(0, std::ios::end);
  }
  ~Store() {
    scanner.reset();
    Aws::ShutdownAPI({});
  }
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // Uploads media files with their indexes and removes them here. Returns their bytes.
  double TakeAll(const std::vector<std::string>& media) {
    double bytes = 0;
    std::deque<std::shared_ptr<IResult>> running;
    const auto finishFirst = [&] {
      running.front()->Wait();
      if (running.front()->GetStatus() != qvArchiving::TransferStatus::COMPLETED) {
        throw std::runtime_error("an upload failed");
      }
      running.pop_front();
    };
    for (const std::string& path : media) {
      for (const std::string& file : {path, path + "i"}) {
        if (running.size() == kUploadsAtOnce) finishFirst();
        objects.emplace_back(file.substr(kDrivePath), fs::file_size(file));
        bytes += static_cast<double>(objects.back().second);
        running.push_back(scanner->Upload(fs::absolute(file), copies / objects.back().first, {}));
      }
    }
    while (!running.empty()) finishFirst();
    fs::remove_all(fs::path(media.front().substr(0, kDrivePath + 4)));  // with the year
    return bytes;
  }

  enum class Way {
    IntoNothing,
    IntoFiles,
    LikeAPlayer  // in ranges of kPart, some at a time, which are read again
  };
  // Seconds that curl takes to fetch all objects.
  double CurlSeconds(Way way) const {
    fs::create_directory("fetched");
    const std::string login = "aws-sigv4 = aws:amz:us-east-1:s3\nuser = " + user + ":" + password +
                              "\nheader = x-amz-content-sha256:UNSIGNED-PAYLOAD\n";
    std::ofstream list("urls");
    if (way != Way::LikeAPlayer) list << login;
    for (const auto& [key, size] : objects) {
      const std::string file = "fetched/" + fs::path(key).filename().string();
      const auto name = [&, key = key]() -> std::ostream& {
        return list << "url = " << Setting("AWS_ENDPOINT_URL_S3") << "/" << kBucket << "/" << key
                    << "\noutput = ";
      };
      if (way != Way::LikeAPlayer) {
        name() << (way == Way::IntoFiles ? file : "/dev/null") << "\n";
        continue;
      }
      for (std::uint64_t at = 0; at < size; at += kPart) {
        list << (list.tellp() == 0 ? "" : "next\n") << login;
        name() << file << at << "\nrange = " << at << "-" << at + kPart - 1 << "\n";
      }
    }
    list.close();
    const std::int64_t begin = WallNs();
    if (way == Way::LikeAPlayer) {
      (void)ChildCpuNs("curl --no-progress-meter -f -Z --parallel-max 3 -K urls");
      std::vector<char> piece(192 * 1024);
      for (const fs::directory_entry& entry : fs::directory_iterator("fetched")) {
        std::ifstream file(entry.path().string(), std::ios::binary);
        while (file.read(piece.data(), static_cast<std::streamsize>(piece.size()))) {
        }
      }
    } else {
      (void)ChildCpuNs("curl -s -f -K urls");
    }
    const double seconds = static_cast<double>(WallNs() - begin) / 1e9;
    fs::remove_all("fetched");
    return seconds;
  }

  void DropCopies() const { fs::remove_all(copies); }

  // Requests that the server has answered since the last call, by method.
  std::map<std::string, int> Requests() {
    // What came before the marker is there when every request that the log shows was done.
    const std::string marker = "marker" + std::to_string(++markers);
    std::map<std::string, int> counts;
    int open = 0;
    bool marked = false;
    for (int looks = 0; looks < 500 && !(marked && open <= 0); ++looks) {
      (void)scanner->TestFile(copies / marker / "none");
      for (std::string line; std::getline(log, line);) {
        if (line.find("= starting new request req=") != std::string::npos) ++open;
        if (line.find("= req done req=") != std::string::npos) --open;
        const std::size_t request = line.find(" beast: ");
        if (request == std::string::npos) continue;
        if (line.find("marker") != std::string::npos) {
          marked = marked || line.find(marker) != std::string::npos;
          continue;
        }
        const std::size_t method = line.find('"', request) + 1;
        const bool list = line.find("delimiter=") != std::string::npos;
        ++counts[list ? "listings" : line.substr(method, line.find(' ', method) - method)];
      }
      log.clear();
    }
    if (!marked) throw std::runtime_error("the server's log doesn't tell of its requests");
    return counts;
  }

  // The configuration that tells the plug-in of the bucket, or that it is accessible.
  [[nodiscard]] std::string Archives(bool configuration) const {
    const std::string begin =
        "<qDVR><Archives ID='" + std::to_string(KELVO_MODULE_ARCHIVES) + "'><Archive ID='1' ";
    const std::string values = "Enabled='1' Type='5' MountPoint='" + copies.string() +
                               "' Address='" + kAddress + "' Username='" + user + "' Password='" +
                               password + "'";
    return begin + (configuration ? values : "Status='0'") + "/></Archives></qDVR>";
  }

 private:
  const std::string user, password;
  const fs::path copies = fs::current_path() / "copies";
  std::shared_ptr<qvArchiving::IScanner> scanner;
  std::vector<std::pair<std::string, std::uint64_t>> objects;  // keys and sizes
  std::ifstream log;
  int markers = 0;
};

void PlayAll(SearchSite& site) {
  int frames = 0;
  site.host.Read(RequestText(1, kPlantBegin, kPlantBegin + kFiles * kPlantSeconds, 1),
                 [&](const KelvoHostRequest& event) {
                   frames += event.SubCode == KELVO_SUB_SEARCH_FRAME && event.Length != 0;
                   return 0u;
                 });
  if (frames != kFiles * kFrames) {
    throw std::runtime_error(std::to_string(frames) + " frames came");
  }
}

}  // namespace

void Bucket(const std::string& module) {
  Store store;
  SearchSite site(module);
  const double bytes = store.TakeAll(site.Plant(1, kFiles, {1, kFrames, kFrameBytes, 40}));
  site.host.Configure(store.Archives(true));
  site.host.Act(store.Archives(false));
  std::vector<double> curl, bare, player, own;
  std::map<std::string, int> requests;
  const double megabytes = bytes / 1e6;
  for (int run = 0; run < kRuns; ++run) {
    bare.push_back(megabytes / store.CurlSeconds(Store::Way::IntoNothing));
    curl.push_back(megabytes / store.CurlSeconds(Store::Way::IntoFiles));
    player.push_back(megabytes / store.CurlSeconds(Store::Way::LikeAPlayer));
    store.DropCopies();
    (void)store.Requests();
    const std::int64_t begin = WallNs();
    PlayAll(site);
    own.push_back(megabytes / (static_cast<double>(WallNs() - begin) / 1e9));
    requests = store.Requests();
  }
  int all = 0;
  std::printf(
      "  an hour of footage, %.0f MB: %.0f MB/s with a cold cache, curl into files %.0f, "
      "into nothing %.0f, in ranges that are read again %.0f\n  requests:",
      megabytes, Median(own), Median(curl), Median(bare), Median(player));
  for (const auto& [kind, count] : requests) {
    std::printf(" %d %s", count, kind.c_str());
    all += count;
  }
  std::printf(", %d in all\n", all);
  Report("playback from a bucket, cold cache, against curl into files", Median(own) / Median(curl),
         "x", Wanted::AtLeast, 1.0);
  Report("the same against curl in ranges that are read again", Median(own) / Median(player), "x",
         Wanted::AtLeast, 0.9);
}

}  // namespace bench
