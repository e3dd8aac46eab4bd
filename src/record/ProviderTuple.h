#pragma once

#include <cstdint>
#include <set>

namespace qvsvr::kelvo {

// Names one configured channel.
struct SProviderTuple {
  std::int32_t Provider = 0;  // the channel's provider id
  std::uint32_t Id = 0;       // ID of its Devices element
  std::int32_t Device = 0;
  std::int32_t Input = 0;  // effective input
  std::int32_t Context = 0;

  virtual ~SProviderTuple() = default;
  // Ordered by the fields in order, each as a signed number.
  friend bool operator<(const SProviderTuple& a, const SProviderTuple& b);
};
using ProviderTuples = std::set<SProviderTuple>;

}  // namespace qvsvr::kelvo
