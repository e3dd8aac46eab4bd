#include "record/ProviderTuple.h"

#include <tuple>

namespace qvsvr::kelvo {

bool operator<(const SProviderTuple& a, const SProviderTuple& b) {
  const auto key = [](const SProviderTuple& tuple) {
    return std::tuple(tuple.Provider, static_cast<std::int32_t>(tuple.Id), tuple.Device,
                      tuple.Input, tuple.Context);
  };
  return key(a) < key(b);
}

}  // namespace qvsvr::kelvo
