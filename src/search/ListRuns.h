#pragma once

#include <vector>

#include "search/SearchResult.h"
#include "tree/CFileInfo.h"

namespace qvsvr::kelvo {

// The stretches of a recording. Fills the rows of `info`.
void ListRuns(const qv::kelvo::RunTable& table, qv::kelvo::CFileInfo& info, std::int64_t resolution,
              std::vector<FileRun>& runs);

// The stretches of `info.path`: its runs, or one for each stream when it has no run table or the
// resolution makes no difference, which it does where the clock was set back. Fills the rows of
// `info`. False when the file can't be read.
[[nodiscard]] bool ListRuns(qv::kelvo::PSReader& reader, qv::kelvo::CFileInfo& info,
                            std::int64_t resolution, std::vector<FileRun>& runs);

}  // namespace qvsvr::kelvo
