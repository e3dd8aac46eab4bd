#include "nvrhost/ArchiveCommand.h"

#include <algorithm>
#include <array>
#include <boost/filesystem.hpp>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <deque>
#include <stdexcept>

#include "archiving/IResult.h"
#include "host/Log.h"
#include "nvrhost/Console.h"
#include "nvrhost/HostSetup.h"
#include "nvrhost/OptionGroup.h"
#include "nvrhost/Report.h"

namespace nvrhost {
namespace {

namespace fs = boost::filesystem;
using qvArchiving::IResult;
using qvArchiving::TransferStatus;

constexpr std::size_t kAtOnce = 4;  // the scanner's threads
constexpr int kTries = 3;

std::uint32_t shownLevel = KELVO_LOG_WARNING;

// The scanner is the plug-in's code linked into this program; it logs by the same function.
std::uint32_t TakeLog(const KelvoHostRequest* request, KelvoHostReply* reply) {
  if (request->SubCode == KELVO_SUB_LOG_LEVEL) {
    reply->Status = shownLevel;
  } else if (request->SubCode == KELVO_SUB_LOG_LINE) {
    std::fprintf(stderr, "kelvo: %s\n", static_cast<const char*>(request->Payload));
  }
  return 0;
}

fs::path DayDirectory(const UploadOptions& options) {
  std::tm day{};
  if (std::sscanf(options.day.c_str(), "%4d-%2d-%2d", &day.tm_year, &day.tm_mon, &day.tm_mday) !=
      3) {
    throw std::runtime_error("--day wants YYYY-MM-DD");
  }
  std::array<char, 48> path{};
  std::snprintf(path.data(), path.size(), "%04d/%02d/%02d", day.tm_year, day.tm_mon, day.tm_mday);
  day.tm_year -= 1900;
  --day.tm_mon;
  ++day.tm_mday;
  day.tm_isdst = -1;
  constexpr std::time_t kLastFile = 10 * 60;
  if (!options.unfinished && std::time(nullptr) < mktime(&day) + kLastFile) {
    throw std::runtime_error("that day isn't over (--unfinished uploads it all the same)");
  }
  return path.data();
}

// Media ahead of its index, so that a listing doesn't find an index alone.
std::vector<fs::path> RecordingsOf(const fs::path& day) {
  std::vector<fs::path> media, indexes;
  for (const auto& drive : fs::directory_iterator("drives")) {
    if (!fs::is_directory(drive.path() / day)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(drive.path() / day)) {
      const std::string extension = entry.path().extension().string();
      if (extension == ".ps") media.push_back(entry.path());
      if (extension == ".psi") indexes.push_back(entry.path());
    }
  }
  std::sort(media.begin(), media.end());
  std::sort(indexes.begin(), indexes.end());
  media.insert(media.end(), indexes.begin(), indexes.end());
  return media;
}

class Uploader {
 public:
  Uploader(qvArchiving::IScanner& target, fs::path copies)
      : scanner(target), root(std::move(copies)) {}

  void Add(const fs::path& file) {
    // drives/NAME/YYYY/MM/DD/HH/file
    fs::path remote = root;
    auto part = std::next(file.begin(), 2);
    for (; part != file.end(); ++part) remote /= *part;
    std::uint64_t there = 0;
    std::string error;
    const std::uint64_t size = fs::file_size(file);
    if (scanner.TestFile(remote) && scanner.GetFileSize(remote, there, error) && there == size) {
      ++skipped;
      return;
    }
    while (pending.size() >= kAtOnce) FinishFirst();
    pending.push_back({file, size, scanner.Upload(fs::absolute(file), remote, {})});
  }

  int Finish() {
    while (!pending.empty()) FinishFirst();
    console.EndProgress();
    const double seconds = std::chrono::duration<double>(Steady::now() - begun).count();
    std::printf("%" PRIu64 " files, %s uploaded in %.2f s; %" PRIu64 " were there, %" PRIu64
                " failed\n",
                uploaded, SizeText(bytes).c_str(), seconds, skipped, failed);
    return failed == 0 ? 0 : 1;
  }

 private:
  using Steady = std::chrono::steady_clock;
  struct Transfer {
    fs::path file;
    std::uint64_t size;
    std::shared_ptr<IResult> result;
  };

  void FinishFirst() {
    Transfer transfer = std::move(pending.front());
    pending.pop_front();
    for (int tries = 1; transfer.result != nullptr; ++tries) {
      transfer.result->Wait();
      if (transfer.result->GetStatus() == TransferStatus::COMPLETED) {
        ++uploaded;
        bytes += transfer.size;
        console.Progress(transfer.file.string(),
                         std::chrono::duration<double>(Steady::now() - begun).count());
        return;
      }
      if (tries == kTries || Interrupted()) break;
      transfer.result = scanner.RetryUpload(transfer.result);
    }
    ++failed;
    std::string reason = "it didn't start";
    if (transfer.result != nullptr) transfer.result->GetLastError(reason);
    console.ErrorLine(transfer.file.string() + ": " + reason);
  }

  qvArchiving::IScanner& scanner;
  const fs::path root;
  Console console;
  const Steady::time_point begun = Steady::now();
  std::deque<Transfer> pending;
  std::uint64_t uploaded = 0, skipped = 0, failed = 0, bytes = 0;
};

}  // namespace

void AddUploadOptions(CLI::App& command, UploadOptions& options) {
  AddArchiveOptions(command, options.archive);
  command.get_option("--archive")->required();
  OptionGroup group(command, "Upload");
  group.AddShown("--dir", options.directory, "DIR", "working directory of the recordings");
  group.Add("--day", options.day, "YYYY-MM-DD", "the day, by local time").required();
  command.add_flag("--unfinished", options.unfinished, "also a day that isn't over")
      ->group("Upload");
  AddLogOption(command, "Upload", options.logLevel);
}

int Archive(const UploadOptions& options) {
  const fs::path day = DayDirectory(options);
  EnterRecorded(options.directory);
  shownLevel = LogLevel(options.logLevel);
  qvsvr::kelvo::SetHostFunction(TakeLog);
  CatchInterrupts();
  const S3Library library;
  const auto scanner = OpenArchive(options.archive);
  const fs::path copies = fs::absolute(options.archive.copies);
  std::string error;
  if (!scanner->CreateDirectories(copies, error)) {
    throw std::runtime_error("no bucket: " + error);
  }
  const auto files = RecordingsOf(day);
  if (files.empty()) throw std::runtime_error("no recordings of " + options.day);
  Uploader uploader(*scanner, copies);
  for (const fs::path& file : files) {
    if (Interrupted()) throw std::runtime_error("interrupted");
    uploader.Add(file);
  }
  return uploader.Finish();
}

}  // namespace nvrhost
