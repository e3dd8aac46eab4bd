#pragma once

#include <cstdint>
#include <string>

namespace qvsvr::kelvo {

// What storage asks of the record manager. Worker thread only.
class IRecordManager {
 public:
  virtual ~IRecordManager() = default;

  // Gigabytes set aside on a volume, by its name.
  [[nodiscard]] virtual std::int64_t ReservedGB(const std::string& volume) const = 0;

  // Whether the recording at that path is being written.
  [[nodiscard]] virtual bool IsBeingWritten(const std::string& /*path*/) const { return false; }

  // True once the plug-in was told to stop. Any thread.
  [[nodiscard]] virtual bool IsStopping() const = 0;
};

}  // namespace qvsvr::kelvo
