#pragma once

#include <map>
#include <memory>
#include <string>

namespace qvArchiving {

// The configuration of one archive target, all values as text.
using ScannerProperties = std::map<std::string, std::string>;

// One archive target: a place outside the record volumes that holds the same dated tree.
class IScanner : public std::enable_shared_from_this<IScanner> {
 public:
  explicit IScanner(ScannerProperties properties) : properties(std::move(properties)) {}
  virtual ~IScanner() = default;

  // A copy of the target's configuration. Any thread.
  [[nodiscard]] ScannerProperties Properties() const { return properties; }

 private:
  const ScannerProperties properties;
};

}  // namespace qvArchiving
