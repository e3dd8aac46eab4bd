#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "archiving/IScanner.h"
#include "archiving/TransferDesk.h"
#include "platform/Platform.h"
#include "tree/LocalTime.h"
#include "tree/RecordPath.h"
#include "tree/RequestKey.h"

namespace qv::kelvo {

using TargetList = std::vector<std::shared_ptr<qvArchiving::IScanner>>;

// Whether the target is a bucket; `root` becomes the prefix of its local copies, ending in the
// separator. One whose type can't be read is none.
[[nodiscard]] bool IsBucket(const qvArchiving::IScanner& target, std::string& root);

// The way of one search to the buckets. A store that doesn't answer is left alone from then on, and
// while one is waited for the search can be cancelled. One thread at a time.
class BucketAccess {
 public:
  using Scanner = std::shared_ptr<qvArchiving::IScanner>;
  // What a stretch of a file needs to be there.
  using Fetch = std::vector<qvArchiving::TransferDesk::Ticket>;
  // Larger stretches come in pieces, side by side.
  static constexpr std::uint64_t kPiece = std::uint64_t{5} << 20;

  // Borrows `system` for its life.
  explicit BucketAccess(Platform& system) : platform(system) {}

  // Called about once a second while a store is waited for; false gives everything up.
  std::function<bool()> onWaiting;
  [[nodiscard]] bool GaveUp() const { return gaveUp; }

  // Whether the bucket has the directory of that year, month, day or hour; false also for one that
  // is left alone. Where recordings may be expected, the hour's listing is asked for first: it
  // answers for all levels and serves FetchHour, too.
  [[nodiscard]] bool TestLevel(const Scanner& target, const std::string& root, UtcMs time,
                               TreeLevel level);

  // Brings down what a search needs of one hour of the buckets among `targets`, as far as it isn't
  // there as the store's listing has it: index files whole, of media files the part ahead of the
  // first frame. Only recordings that match one of `requested`, or all of them if that is empty.
  // What fails is left for a later search.
  void FetchHour(const TargetList& targets, UtcMs time, std::span<const RequestKey> requested);

  // Brings down the index and the head of a recording anew, whatever is there; once for each path.
  // False if that was done before or nothing came.
  [[nodiscard]] bool Renew(const Scanner& target, const std::string& path);

  // Begins to bring down a stretch of a recording, and its head if that isn't there. Empty for a
  // store that is left alone.
  [[nodiscard]] Fetch Begin(const Scanner& target, const std::string& path, std::uint64_t offset,
                            std::uint64_t bytes);
  // Waits for it; whether all of it is there.
  [[nodiscard]] bool Await(const Scanner& target, const Fetch& fetch);

 private:
  struct Answer;
  using Question = std::function<void(qvArchiving::IScanner&, Answer&)>;

  // What a bucket said about the hour that was last asked for.
  struct Listed {
    std::string directory;
    std::shared_ptr<Answer> answer;  // null if it is used up
    std::string lastWithFiles;       // the latest directory that had any
  };

  // Null when the store is left alone or the search was given up. Throws what the question throws.
  std::shared_ptr<Answer> Ask(const Scanner& target, Question question);
  void List(const Scanner& target, const std::string& directory);
  void FetchFrom(const Scanner& target, const std::string& directory,
                 std::span<const RequestKey> requested);
  [[nodiscard]] Fetch BeginMissing(const Scanner& target, const std::string& directory,
                                   const std::map<std::string, std::uint64_t>& remote);
  [[nodiscard]] bool IsLeftAlone(const Scanner& target) const {
    return gaveUp || silent.contains(target.get());
  }
  void Wait();

  Platform& platform;
  bool gaveUp = false;
  std::int64_t lastWait = 0;  // steady nanoseconds, when waiting began or `onWaiting` was called
  std::set<const qvArchiving::IScanner*> silent;
  std::set<std::string> renewed;
  std::map<const qvArchiving::IScanner*, Listed> listed;
};

}  // namespace qv::kelvo
