#pragma once

#include <utility>

#include "aws/core/utils/memory/stl/AWSVector.h"
#include "aws/s3/model/CommonPrefix.h"
#include "aws/s3/model/Object.h"

namespace Aws::S3::Model {

class ListObjectsResult {
 public:
  [[nodiscard]] const Vector<Object>& GetContents() const { return contents; }
  void AddContents(Object value) { contents.push_back(std::move(value)); }
  [[nodiscard]] const Vector<CommonPrefix>& GetCommonPrefixes() const { return commonPrefixes; }
  void AddCommonPrefixes(CommonPrefix value) { commonPrefixes.push_back(std::move(value)); }
  [[nodiscard]] bool GetIsTruncated() const { return isTruncated; }
  void SetIsTruncated(bool value) { isTruncated = value; }

 private:
  Vector<Object> contents;
  Vector<CommonPrefix> commonPrefixes;
  bool isTruncated = false;
};

}  // namespace Aws::S3::Model
