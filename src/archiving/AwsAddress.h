#pragma once

#include <aws/core/utils/memory/stl/AWSString.h>
#include <aws/s3/model/BucketLocationConstraint.h>

#include <boost/filesystem/path.hpp>
#include <string>

namespace qvArchiving {

// What a bucket's address says: bucket.s3.region.domain, with or without "https://" or two leading
// backslashes.
struct AwsAddress {
  std::string region;  // "": none that is known
  Aws::S3::Model::BucketLocationConstraint constraint{};
  std::string bucket;  // "": none
};

[[nodiscard]] AwsAddress ParseAddress(const std::string& fullName);

// The SDK may be built with an allocator, and then with a string type, of its own.
inline Aws::String ToAws(const std::string& text) {
  return {text.data(), text.size()};
}
inline std::string FromAws(const Aws::String& text) {
  return {text.data(), text.size()};
}

// A path's text with forward slashes, whatever this platform's are.
[[nodiscard]] std::string ForwardSlashes(std::string text);
[[nodiscard]] inline std::string ForwardSlashes(const boost::filesystem::path& path) {
  return ForwardSlashes(path.string());
}

}  // namespace qvArchiving
