#include "tests/support/FaultyFiles.h"

#include <algorithm>
#include <chrono>

namespace qv::kelvo {

namespace {

// Files that come and go beside the recordings.
bool IsHousekeeping(const std::string& path) {
  return path.ends_with("test.bin") || path.find("kelvo.xml") != std::string::npos;
}

}  // namespace

class FaultyFile : public MediaFile {
 public:
  FaultyFile(FaultyFiles& files, std::string name, std::unique_ptr<MediaFile> file)
      : owner(files), path(std::move(name)), real(std::move(file)) {
    owner.CountOpen(+1);
  }
  ~FaultyFile() override {
    if (!closed) owner.CountOpen(-1);
  }

  IoResult ReadAt(std::uint64_t offset, MutableBytes buffer) override {
    const auto fault = owner.Count(FileCall::ReadAt, path);
    if (!fault) return real->ReadAt(offset, buffer);
    if (fault->error != 0) return {0, fault->error};
    return real->ReadAt(offset, buffer.first(std::min(fault->shortBytes, buffer.size())));
  }

  IoResult WriteAt(std::uint64_t offset, std::span<const ConstBytes> parts) override {
    const auto fault = owner.Count(FileCall::WriteAt, path);
    if (!fault) return real->WriteAt(offset, parts);
    if (fault->error != 0) return {0, fault->error};
    std::vector<ConstBytes> kept;
    std::size_t left = fault->shortBytes;
    for (const ConstBytes part : parts) {
      kept.push_back(part.first(std::min(left, part.size())));
      left -= kept.back().size();
    }
    return real->WriteAt(offset, kept);
  }

  int Size(std::uint64_t& bytes) override {
    const auto fault = owner.Count(FileCall::Size, path);
    return fault ? fault->error : real->Size(bytes);
  }
  FileStamp OpenedAs() const override { return real->OpenedAs(); }
  int CreationTime(std::int64_t& seconds) override {
    const auto fault = owner.Count(FileCall::CreationTime, path);
    return fault ? fault->error : real->CreationTime(seconds);
  }
  int SetSize(std::uint64_t bytes) override {
    const auto fault = owner.Count(FileCall::SetSize, path);
    return fault ? fault->error : real->SetSize(bytes);
  }

  int Close() override {
    if (closed) return 0;
    const auto fault = owner.Count(FileCall::Close, path);
    const int result = real->Close();  // a close that fails has closed all the same
    closed = true;
    owner.CountOpen(-1);
    return fault ? fault->error : result;
  }

 private:
  FaultyFiles& owner;
  const std::string path;
  const std::unique_ptr<MediaFile> real;
  bool closed = false;
};

int FaultyFiles::Open(const std::string& path, OpenMode mode, std::unique_ptr<MediaFile>& file) {
  file.reset();
  if (const auto fault = Count(FileCall::Open, path)) return fault->error;
  std::unique_ptr<MediaFile> opened;
  const int error = real.Open(path, mode, opened);
  if (error == 0) file = std::make_unique<FaultyFile>(*this, path, std::move(opened));
  return error;
}

void FaultyFiles::Set(FileFault fault) {
  const std::lock_guard lock(mutex);
  faults.push_back({std::move(fault)});
}

void FaultyFiles::ClearFaults() {
  const std::lock_guard lock(mutex);
  faults.clear();
}

std::size_t FaultyFiles::Calls(FileCall call) const {
  const std::lock_guard lock(mutex);
  return calls[static_cast<std::size_t>(call)];
}

std::size_t FaultyFiles::FaultsFired() const {
  const std::lock_guard lock(mutex);
  return fired;
}

std::size_t FaultyFiles::OpenFiles() const {
  const std::lock_guard lock(mutex);
  return open;
}

bool FaultyFiles::WaitForOpenFiles(std::size_t count) {
  std::unique_lock lock(mutex);
  return openChanged.wait_for(lock, std::chrono::seconds(10), [&] { return open == count; });
}

std::optional<FileFault> FaultyFiles::Count(FileCall call, const std::string& path) {
  if (before) before(call, path);
  const std::lock_guard lock(mutex);
  ++calls[static_cast<std::size_t>(call)];
  std::optional<FileFault> found;
  for (auto& [fault, seen] : faults) {
    const bool meant = fault.suffix.empty() ? !IsHousekeeping(path) : path.ends_with(fault.suffix);
    if (fault.call != call || !meant) continue;
    const std::size_t number = ++seen;
    if (found || number < fault.first || number - fault.first >= fault.times) continue;
    found = fault;
    ++fired;
  }
  return found;
}

void FaultyFiles::CountOpen(int change) {
  const std::lock_guard lock(mutex);
  open += static_cast<std::size_t>(change);
  openChanged.notify_all();
}

}  // namespace qv::kelvo
