#include "record/RecordVolumes.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::int64_t kFileGB = 1;

}  // namespace

const std::string& RecordVolumes::Ask() {
  searching = false;
  answer.reset();
  answer = fileSystem.GetRecordVolume(&manager, kFileGB);
  searching = answer->empty() && fileSystem.StillSearching();
  return *answer;
}

}  // namespace qvsvr::kelvo
