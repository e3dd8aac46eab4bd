#include "platform/WriteBack.h"

#include <algorithm>
#include <chrono>

#include "platform/Files.h"
#include "platform/Threads.h"

namespace qv::kelvo {
namespace {

constexpr std::size_t kRememberedDirectories = 100;  // four days of hours; then begun anew

std::string ParentOf(const std::string& path) {
  const std::size_t separator = path.find_last_of(kPathSeparators);
  return separator == std::string::npos ? std::string() : path.substr(0, separator);
}

}  // namespace

WriteBack::WriteBack(Platform& system,
                     std::function<void(const std::string& root, int error)> failed)
    : platform(system), onFailure(std::move(failed)) {}

void WriteBack::Opened(const std::string& root, const std::string& media,
                       const std::string& index) {
  const std::lock_guard lock(mutex);
  if (stopping) return;
  std::unique_ptr<Drive>& drive = drives[root];
  if (drive == nullptr) {
    drive = std::make_unique<Drive>();
    drive->root = root;
    while (!drive->root.empty() && IsPathSeparator(drive->root.back())) drive->root.pop_back();
    drive->begun = platform.clock.SteadyNs();
    drive->thread = std::thread([this, &started = *drive] { Run(started); });
  }
  drive->pairs[media] = {index};
  if (drive->pairs.size() == 1) drive->wake.notify_one();
}

void WriteBack::Closed(const std::string& media) {
  const std::lock_guard lock(mutex);
  for (const auto& [root, drive] : drives) {
    const auto pair = drive->pairs.find(media);
    if (pair != drive->pairs.end()) pair->second.open = false;
  }
}

bool WriteBack::IsOpen(const std::string& media) {
  const std::lock_guard lock(mutex);
  return std::ranges::any_of(drives, [&media](const auto& entry) {
    const auto pair = entry.second->pairs.find(media);
    return pair != entry.second->pairs.end() && pair->second.open;
  });
}

bool WriteBack::IsAtWork(const std::string& media) {
  const std::lock_guard lock(mutex);
  return std::ranges::any_of(
      drives, [&media](const auto& entry) { return entry.second->pairs.contains(media); });
}

void WriteBack::Look() {
  const std::lock_guard lock(mutex);
  for (const auto& [root, drive] : drives) drive->wake.notify_one();
}

void WriteBack::Stop() {
  {
    const std::lock_guard lock(mutex);
    stopping = true;
    for (const auto& [root, drive] : drives) {
      drive->wake.notify_one();
      if (drive->threadId != 0) RaiseThread(drive->threadId);
    }
  }
  for (const auto& [root, drive] : drives) {
    if (drive->thread.joinable()) drive->thread.join();
  }
}

// A drive's thread. It works on a copy of the pairs, so that files come and go while the disk takes
// its time; at a stop it completes what is there once more.
void WriteBack::Run(Drive& drive) {
  const std::uint64_t threadId = YieldToOtherThreads();
  std::unique_lock lock(mutex);
  drive.threadId = threadId;
  if (stopping) RaiseThread(threadId);
  for (;;) {
    const std::int64_t wait = drive.begun + kPeriodNs - platform.clock.SteadyNs();
    if (!stopping && drive.pairs.empty()) {
      drive.wake.wait(lock);
    } else if (!stopping && wait > 0) {
      drive.wake.wait_for(lock, std::chrono::nanoseconds(wait));
    } else {
      const bool last = stopping;
      drive.begun = platform.clock.SteadyNs();
      const Pairs pairs = drive.pairs;
      lock.unlock();
      Complete(drive, pairs);
      lock.lock();
      for (const auto& [media, pair] : pairs) {
        const auto now = drive.pairs.find(media);
        now->second.named = true;
        if (!pair.open && !now->second.open) drive.pairs.erase(now);
      }
      if (last) return;
    }
  }
}

// Each step for all pairs before the next one: the first call that waits for the file system's
// journal does so for all.
void WriteBack::Complete(Drive& drive, const Pairs& pairs) {
  DiskSync& sync = platform.diskSync;
  int worst = 0;
  const auto note = [&](int error) {
    // Room may have been made of it meanwhile.
    if (error != 0 && !IsMissing(error)) worst = error;
  };
  for (const auto& [media, pair] : pairs) note(sync.Start(media));
  for (const auto& [media, pair] : pairs) note(sync.Finish(media));
  for (const auto& [media, pair] : pairs) note(sync.Start(pair.index));
  for (const auto& [media, pair] : pairs) note(sync.Finish(pair.index));
  for (const std::string& directory : NewDirectories(drive, pairs)) {
    note(sync.FinishDirectory(directory));
  }
  if (worst == drive.failure) return;
  drive.failure = worst;
  onFailure(drive.root, worst);
}

// The directories in which names are new, those of the recordings and of directories above them.
std::set<std::string> WriteBack::NewDirectories(Drive& drive, const Pairs& pairs) {
  std::set<std::string> found;
  if (drive.directories.size() > kRememberedDirectories) drive.directories.clear();
  for (const auto& [media, pair] : pairs) {
    if (pair.named) continue;
    std::string directory = ParentOf(media);
    found.insert(directory);
    while (directory.size() > drive.root.size() && drive.directories.insert(directory).second) {
      directory = ParentOf(directory);
      found.insert(directory);
    }
  }
  return found;
}

}  // namespace qv::kelvo
