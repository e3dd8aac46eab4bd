#include "nvrhost/ArchiveTarget.h"

#include <aws/core/Aws.h>
#include <tinyxml.h>

#include <array>
#include <boost/filesystem.hpp>
#include <cstdio>
#include <set>
#include <stdexcept>

#include "archiving/IResult.h"
#include "nvrhost/OptionGroup.h"
#include "platform/Platform.h"

namespace nvrhost {
namespace {

namespace fs = boost::filesystem;

constexpr int kBucketType = 5;
constexpr int kArchiveId = 1;
constexpr std::int64_t kMediaHead = 1978;  // what stands ahead of the first frame

std::string CopiesOf(const ArchiveOptions& options) {
  return fs::absolute(options.copies).string();
}

// The Archives message of both forms.
template <typename Fill>
std::string ArchivesXml(Fill fill) {
  TiXmlElement archive("Archive");
  archive.SetAttribute("ID", kArchiveId);
  fill(archive);
  TiXmlElement archives("Archives");
  archives.SetAttribute("ID", static_cast<int>(KELVO_MODULE_ARCHIVES));
  archives.InsertEndChild(archive);
  TiXmlElement root("qDVR");
  root.InsertEndChild(archives);
  TiXmlPrinter printer;
  root.Accept(&printer);
  return printer.Str();
}

// Two digits each, as the tree has them.
std::vector<fs::path> Existing(qvArchiving::IScanner& scanner, const std::vector<fs::path>& parents,
                               int first, int last) {
  std::vector<fs::path> found;
  for (const fs::path& parent : parents) {
    for (int number = first; number <= last; ++number) {
      std::array<char, 12> name{};
      std::snprintf(name.data(), name.size(), "%02d", number);
      if (scanner.TestDirectory(parent / name.data())) found.push_back(parent / name.data());
    }
  }
  return found;
}

// The first bytes of a file, or all for 0.
void Fetch(qvArchiving::IScanner& scanner, const std::string& path, std::int64_t size) {
  if (fs::exists(path)) return;
  const auto transfer = scanner.Download(path, path, 0, size);
  if (transfer != nullptr) transfer->Wait();
  if (transfer != nullptr && transfer->GetStatus() == qvArchiving::TransferStatus::COMPLETED) {
    return;
  }
  std::string reason = "it didn't start";
  if (transfer != nullptr) transfer->GetLastError(reason);
  throw std::runtime_error("can't fetch " + path + ": " + reason);
}

std::string Refusal(const std::string& error) {
  return "can't list the archive: " +
         (error.empty() ? "the store refused (--user, --password, the bucket's name)" : error);
}

}  // namespace

void AddArchiveOptions(CLI::App& command, ArchiveOptions& options) {
  OptionGroup group(command, "Archive");
  group.Add("--archive", options.address, "ADDRESS",
            "the bucket, as BUCKET.s3.REGION.amazonaws.com; AWS_ENDPOINT_URL_S3 leads to another "
            "store");
  group.Add("--user", options.user, "KEY", "access key [AWS_ACCESS_KEY_ID]")
      .envname("AWS_ACCESS_KEY_ID");
  group.Add("--password", options.password, "SECRET", "secret key [AWS_SECRET_ACCESS_KEY]")
      .envname("AWS_SECRET_ACCESS_KEY");
  group.AddShown("--copies", options.copies, "DIR", "where local copies lie, below --dir");
}

S3Library::S3Library() {
  Aws::InitAPI(Aws::SDKOptions());
}

S3Library::~S3Library() {
  Aws::ShutdownAPI(Aws::SDKOptions());
}

std::shared_ptr<qvArchiving::IScanner> OpenArchive(const ArchiveOptions& options) {
  namespace property = qvArchiving::property;
  try {
    return qvArchiving::CreateScanner({{property::kType, std::to_string(kBucketType)},
                                       {property::kFullName, options.address},
                                       {property::kFullyMountedPath, CopiesOf(options)},
                                       {property::kUserName, options.user},
                                       {property::kPassword, options.password}},
                                      {}, qv::kelvo::SystemPlatform());
  } catch (const std::invalid_argument& error) {
    throw std::runtime_error("--archive " + options.address + ": " + error.what());
  }
}

void AnnounceArchive(hostkit::SimHost& host, const ArchiveOptions& options) {
  const std::string configuration = ArchivesXml([&](TiXmlElement& archive) {
    archive.SetAttribute("Enabled", 1);
    archive.SetAttribute("Type", kBucketType);
    archive.SetAttribute("MountPoint", CopiesOf(options));
    archive.SetAttribute("Address", options.address);
    archive.SetAttribute("Username", options.user);
    archive.SetAttribute("Password", options.password);
  });
  const std::string status =
      ArchivesXml([](TiXmlElement& archive) { archive.SetAttribute("Status", 0); });
  // A message's buffer comes back before it is applied: the last one tells that the others were.
  if (!host.Ioctl(KELVO_IOCTL_CONFIGURATION, configuration) ||
      !host.WriteXml(KELVO_WRITE_ACTION, status) || !host.WriteXml(KELVO_WRITE_ACTION, "<qDVR/>") ||
      !host.WaitOutstanding(0)) {
    throw std::runtime_error("the plug-in doesn't take the archive");
  }
}

std::vector<std::string> FindArchived(const ArchiveOptions& options) {
  const auto scanner = OpenArchive(options);
  const fs::path root = CopiesOf(options);
  std::string error;
  std::set<int> years;
  if (!scanner->GetYears(root, years, error)) {
    throw std::runtime_error(Refusal(error));
  }
  std::vector<fs::path> directories;
  directories.reserve(years.size());
  for (const int year : years) directories.push_back(root / std::to_string(year));
  directories = Existing(*scanner, directories, 1, 12);
  directories = Existing(*scanner, directories, 1, 31);
  directories = Existing(*scanner, directories, 0, 23);

  constexpr std::size_t kIdAt = 5, kIdLength = 8;
  std::vector<std::string> found;
  std::set<std::string> streams;
  for (const fs::path& hour : directories) {
    std::uint32_t count = 0;
    std::uint64_t bytes = 0;
    qvArchiving::ScannedFileSet files;
    if (!scanner->QueryDirectory(hour, count, bytes, &files, false, error)) {
      throw std::runtime_error(Refusal(error));
    }
    for (const auto& file : files) {
      if (!file.name.ends_with(".ps") || file.name.size() < kIdAt + kIdLength) continue;
      found.push_back((hour / file.name).string());
      if (streams.insert(file.name.substr(kIdAt, kIdLength)).second) {
        Fetch(*scanner, found.back(), kMediaHead);
        Fetch(*scanner, found.back() + "i", 0);
      }
    }
  }
  if (found.empty()) throw std::runtime_error("no recordings in " + options.address);
  return found;
}

}  // namespace nvrhost
