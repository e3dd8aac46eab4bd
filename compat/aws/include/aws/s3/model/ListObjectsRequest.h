#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::S3::Model {

class ListObjectsRequest {
 public:
  [[nodiscard]] const String& GetBucket() const { return bucket; }
  void SetBucket(String value) { bucket = std::move(value); }
  [[nodiscard]] const String& GetDelimiter() const { return delimiter; }
  void SetDelimiter(String value) {
    delimiter = std::move(value);
    delimiterSet = true;
  }
  [[nodiscard]] bool DelimiterHasBeenSet() const { return delimiterSet; }
  [[nodiscard]] const String& GetPrefix() const { return prefix; }
  void SetPrefix(String value) {
    prefix = std::move(value);
    prefixSet = true;
  }
  [[nodiscard]] bool PrefixHasBeenSet() const { return prefixSet; }

 private:
  String bucket;
  String delimiter;
  String prefix;
  bool delimiterSet = false;
  bool prefixSet = false;
};

}  // namespace Aws::S3::Model
