#include "search/SearchTargetFileSystem.h"

namespace qvsvr::kelvo {

void SearchTargetFileSystem::Restrict(const SearchRequest& request) {
  searchLocal = request.searchLocal;
  allArchives = request.allArchives;
  archives = request.archives;
}

void SearchTargetFileSystem::GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                                        const qv::kelvo::ArchiveFilter*) {
  if (!searchLocal) flags &= ~qv::kelvo::kVolumesLocal;
  inner.GetVolumes(list, flags, allArchives ? nullptr : &archives);
}

void SearchTargetFileSystem::GetTargets(qv::kelvo::TargetList& list, std::uint32_t flags,
                                        const qv::kelvo::ArchiveFilter*) {
  if (!searchLocal) flags &= ~qv::kelvo::kVolumesLocal;
  inner.GetTargets(list, flags, allArchives ? nullptr : &archives);
}

}  // namespace qvsvr::kelvo
