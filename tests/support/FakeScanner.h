#pragma once

#include <algorithm>
#include <boost/filesystem.hpp>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "archiving/CLocalDiskScanner.h"
#include "archiving/IResult.h"
#include "tests/support/TempTree.h"

namespace testsupport {

// A target whose files lie in a map from path to content, and whose transfers are done at once.
// What isn't told here is not asked by those who search.
class FakeScanner : public qvArchiving::CLocalDiskScanner {
  using Path = boost::filesystem::path;

 public:
  // Type "5" is a bucket.
  FakeScanner(const std::string& mount, const std::string& type)
      : CLocalDiskScanner({{qvArchiving::property::kType, type},
                           {qvArchiving::property::kFullyMountedPath, mount}}),
        mounted(mount) {}

  std::map<std::string, std::string> files;
  std::vector<std::string> downloads;  // "name offset+size"
  std::string order;                   // of what was done to results: W waited, R released
  int queries = 0;
  bool failing = false;

  bool QueryDirectory(const Path& directory, std::uint32_t&, std::uint64_t&,
                      qvArchiving::ScannedFileSet* set, bool, std::string&) override {
    ++queries;
    for (const auto& [name, content] : files) {
      const std::string path = Slashed(name);
      if (path.substr(0, path.rfind('/') + 1) != Slashed(directory.string())) continue;
      set->insert({name, Path(name).filename().string(), content.size(), true, 0});
    }
    return !failing;
  }
  bool TestDirectory(const Path& directory) override {
    for (const auto& file : files) {
      if (Slashed(file.first).starts_with(Slashed(directory.string()))) return true;
    }
    return false;
  }
  bool IsWithinMount(const Path& path) override {
    return Slashed(path.string()).starts_with(Slashed(mounted));
  }

  std::shared_ptr<qvArchiving::IResult> Download(const Path& remote, const Path& local,
                                                 std::int64_t offset, std::int64_t size) override {
    downloads.push_back(remote.filename().string() + " " + std::to_string(offset) + "+" +
                        std::to_string(size));
    const auto found = std::find_if(files.begin(), files.end(), [&](const auto& file) {
      return Slashed(file.first) == Slashed(remote.string());
    });
    const bool done = !failing && found != files.end();
    if (done) Place(local, found->second, offset, size);
    return std::make_shared<Result>(*this, done);
  }

 private:
  class Result : public qvArchiving::IResult {
   public:
    Result(FakeScanner& scanner, bool completed) : owner(scanner), done(completed) {}
    void Wait() override {
      if (!waited) owner.order += 'W';
      waited = true;
    }
    void Cancel() override {}
    bool LockForCompletion() override { return false; }
    void ReleaseHandle() override { owner.order += 'R'; }
    std::uint64_t GetBytesTransferred() const override { return 0; }
    std::uint64_t GetBytesTotalSize() const override { return 0; }
    void GetLastError(std::string&) const override {}
    std::string GetId() const override { return {}; }
    std::string GetStatusName(qvArchiving::TransferStatus) const override { return {}; }
    qvArchiving::TransferStatus GetStatus() const override {
      return done ? qvArchiving::TransferStatus::COMPLETED : qvArchiving::TransferStatus::FAILED;
    }
    std::map<std::string, std::string> GetMetadata() const override { return {}; }
    std::int64_t GetElapsedMs() const override { return 0; }

   private:
    FakeScanner& owner;
    const bool done;
    bool waited = false;
  };

  static std::string Slashed(const std::string& path) { return qv::kelvo::Slashed(path); }

  static void Place(const Path& local, const std::string& content, std::int64_t offset,
                    std::int64_t size) {
    boost::filesystem::create_directories(local.parent_path());
    if (!boost::filesystem::exists(local)) std::ofstream(local.string()).flush();
    std::fstream file(local.string(), std::ios::in | std::ios::out | std::ios::binary);
    const std::string part =
        content.substr(static_cast<std::size_t>(offset),
                       size == 0 ? std::string::npos : static_cast<std::size_t>(size));
    file.seekp(offset);
    file.write(part.data(), static_cast<std::streamsize>(part.size()));
  }

  const std::string mounted;
};

}  // namespace testsupport
