#include "tests/support/FaultyFiles.h"

#include <algorithm>
#include <chrono>

namespace qv::kelvo {

namespace {

// Files that come and go beside the recordings.
bool IsHousekeeping(const std::string& path) {
  return path.ends_with("test.bin") || path.ends_with("kelvo.xml") || path.ends_with(".bak");
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
    FileFault fault;
    if (!owner.Goes(FileCall::ReadAt, path, fault)) return real->ReadAt(offset, buffer);
    if (fault.error != 0) return {0, fault.error};
    return real->ReadAt(offset, buffer.first(std::min(fault.shortBytes, buffer.size())));
  }

  IoResult WriteAt(std::uint64_t offset, std::span<const ConstBytes> parts) override {
    FileFault fault;
    if (!owner.Goes(FileCall::WriteAt, path, fault)) return real->WriteAt(offset, parts);
    if (fault.error != 0) return {0, fault.error};
    std::vector<ConstBytes> kept;
    std::size_t left = fault.shortBytes;
    for (const ConstBytes part : parts) {
      kept.push_back(part.first(std::min(left, part.size())));
      left -= kept.back().size();
    }
    return real->WriteAt(offset, kept);
  }

  int Size(std::uint64_t& bytes) override {
    return Try(FileCall::Size, [&] { return real->Size(bytes); });
  }
  int CreationTime(std::int64_t& seconds) override {
    return Try(FileCall::CreationTime, [&] { return real->CreationTime(seconds); });
  }
  int SetSize(std::uint64_t bytes) override {
    return Try(FileCall::SetSize, [&] { return real->SetSize(bytes); });
  }

  int Close() override {
    if (closed) return 0;
    FileFault fault;
    const bool goes = owner.Goes(FileCall::Close, path, fault);
    const int result = real->Close();  // a close that fails has closed all the same
    closed = true;
    owner.CountOpen(-1);
    return goes ? fault.error : result;
  }

 private:
  template <typename Call>
  int Try(FileCall kind, Call call) {
    FileFault fault;
    return owner.Goes(kind, path, fault) ? fault.error : call();
  }

  FaultyFiles& owner;
  const std::string path;
  const std::unique_ptr<MediaFile> real;
  bool closed = false;
};

int FaultyFiles::Open(const std::string& path, OpenMode mode, std::unique_ptr<MediaFile>& file) {
  file.reset();
  FileFault fault;
  if (Goes(FileCall::Open, path, fault)) return fault.error;
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

bool FaultyFiles::Goes(FileCall call, const std::string& path, FileFault& fault) {
  if (before) before(call, path);
  const std::lock_guard lock(mutex);
  ++calls[static_cast<std::size_t>(call)];
  bool goes = false;
  for (Armed& armed : faults) {
    if (armed.fault.call != call ||
        !(armed.fault.suffix.empty() ? !IsHousekeeping(path) : path.ends_with(armed.fault.suffix)))
      continue;
    const std::size_t number = ++armed.seen;
    if (goes || number < armed.fault.first || number - armed.fault.first >= armed.fault.times) {
      continue;
    }
    fault = armed.fault;
    goes = true;
  }
  if (goes) ++fired;
  return goes;
}

void FaultyFiles::CountOpen(int change) {
  const std::lock_guard lock(mutex);
  open += static_cast<std::size_t>(change);
  openChanged.notify_all();
}

}  // namespace qv::kelvo
