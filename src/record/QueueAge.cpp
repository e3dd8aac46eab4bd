#include "record/QueueAge.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::uint32_t kLateMs = 10'000;
constexpr std::uint32_t kInTimeMs = 1'000;

}  // namespace

QueueAge::Change QueueAge::Note(std::uint32_t ageMs, bool last) {
  if (late ? ageMs >= kInTimeMs && !last : ageMs <= kLateMs) return Change::None;
  late = !late;
  return late ? Change::Late : Change::InTime;
}

}  // namespace qvsvr::kelvo
