#pragma once

#include <span>
#include <string>

#include "archiving/IScanner.h"
#include "tree/FileSystemBase.h"

namespace qv::kelvo {

// Whether the target is a bucket; `root` becomes the prefix of its local copies, ending in the
// separator. One whose type can't be read is none.
[[nodiscard]] bool IsBucket(const qvArchiving::IScanner& target, std::string& root);

// Brings down what a search needs of one hour of the buckets among `targets`, as far as it isn't
// there: index files whole, of media files the part ahead of the first frame. Only recordings that
// match one of `requested`, or all of them if that is empty. Blocks until the transfers are over;
// one that fails is left for a later search.
void FetchBucketHour(Directories& directories, const TargetList& targets, UtcMs time,
                     std::span<const RequestKey> requested);

}  // namespace qv::kelvo
