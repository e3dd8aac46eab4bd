#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "aws/core/utils/memory/stl/AWSStreamFwd.h"
#include "aws/core/utils/memory/stl/AWSString.h"

namespace Aws::Utils {

// A moment, UTC.
class DateTime {
 public:
  explicit DateTime(std::int64_t value) : seconds(value) {}
  [[nodiscard]] std::int64_t Seconds() const { return seconds; }

 private:
  std::int64_t seconds;
};

}  // namespace Aws::Utils

namespace Aws::S3::Model {

enum class BucketLocationConstraint {
  NOT_SET,
  ap_northeast_1,
  ap_northeast_2,
  ap_south_1,
  ap_southeast_1,
  ap_southeast_2,
  ca_central_1,
  cn_north_1,
  cn_northwest_1,
  eu_central_1,
  eu_west_1,
  eu_west_2,
  eu_west_3,
  sa_east_1,
  us_east_1,
  us_east_2,
  us_gov_west_1,
  us_west_1,
  us_west_2
};

// What several of them have.
class OfBucket {
 public:
  [[nodiscard]] const String& GetBucket() const { return bucket; }
  void SetBucket(String value) { bucket = std::move(value); }

 private:
  String bucket;
};

class OfKey {
 public:
  [[nodiscard]] const String& GetKey() const { return key; }
  void SetKey(String value) { key = std::move(value); }

 private:
  String key;
};

class Bucket {
 public:
  explicit Bucket(String value) : name(std::move(value)) {}
  [[nodiscard]] const String& GetName() const { return name; }

 private:
  String name;
};

class CommonPrefix {
 public:
  explicit CommonPrefix(String value) : prefix(std::move(value)) {}
  [[nodiscard]] const String& GetPrefix() const { return prefix; }

 private:
  String prefix;
};

class ObjectIdentifier : public OfKey {};

class Object : public OfKey {
 public:
  Object(String objectKey, long long bytes, const Utils::DateTime& changed)
      : size(bytes), lastModified(changed) {
    SetKey(std::move(objectKey));
  }
  [[nodiscard]] long long GetSize() const { return size; }
  [[nodiscard]] const Utils::DateTime& GetLastModified() const { return lastModified; }

 private:
  long long size;
  Utils::DateTime lastModified;
};

// Why one object of a request for many failed.
class Error {
 public:
  Error(String name, String text) : code(std::move(name)), message(std::move(text)) {}
  [[nodiscard]] const String& GetCode() const { return code; }
  [[nodiscard]] const String& GetMessage() const { return message; }

 private:
  String code;
  String message;
};

class Delete {
 public:
  [[nodiscard]] const std::vector<ObjectIdentifier>& GetObjects() const { return objects; }
  void AddObjects(ObjectIdentifier value) { objects.push_back(std::move(value)); }

 private:
  std::vector<ObjectIdentifier> objects;
};

class CreateBucketConfiguration {
 public:
  [[nodiscard]] BucketLocationConstraint GetLocationConstraint() const { return constraint; }
  void SetLocationConstraint(BucketLocationConstraint value) { constraint = value; }

 private:
  BucketLocationConstraint constraint = BucketLocationConstraint::NOT_SET;
};

class CopyObjectRequest : public OfBucket, public OfKey {
 public:
  // bucket/key, not encoded.
  [[nodiscard]] const String& GetCopySource() const { return copySource; }
  void SetCopySource(String value) { copySource = std::move(value); }

 private:
  String copySource;
};

class CopyObjectResult {};

class CreateBucketRequest : public OfBucket {
 public:
  [[nodiscard]] const CreateBucketConfiguration& GetCreateBucketConfiguration() const {
    return configuration;
  }
  void SetCreateBucketConfiguration(const CreateBucketConfiguration& value) {
    configuration = value;
  }

 private:
  CreateBucketConfiguration configuration;
};

class CreateBucketResult {};

class DeleteObjectsRequest : public OfBucket {
 public:
  [[nodiscard]] const Delete& GetDelete() const { return list; }
  void SetDelete(Delete value) { list = std::move(value); }

 private:
  Delete list;
};

class DeleteObjectsResult {
 public:
  [[nodiscard]] const std::vector<Error>& GetErrors() const { return errors; }
  void AddErrors(Error value) { errors.push_back(std::move(value)); }

 private:
  std::vector<Error> errors;
};

class GetObjectRequest : public OfBucket, public OfKey {};

class GetObjectResult {
 public:
  [[nodiscard]] IOStream& GetBody() const { return *body; }
  void ReplaceBody(std::shared_ptr<IOStream> stream) { body = std::move(stream); }

 private:
  std::shared_ptr<IOStream> body;
};

class ListBucketsResult {
 public:
  [[nodiscard]] const std::vector<Bucket>& GetBuckets() const { return buckets; }
  void AddBuckets(Bucket value) { buckets.push_back(std::move(value)); }

 private:
  std::vector<Bucket> buckets;
};

class ListObjectsRequest : public OfBucket {
 public:
  [[nodiscard]] const std::optional<String>& GetDelimiter() const { return delimiter; }
  void SetDelimiter(String value) { delimiter = std::move(value); }
  [[nodiscard]] const std::optional<String>& GetPrefix() const { return prefix; }
  void SetPrefix(String value) { prefix = std::move(value); }

 private:
  std::optional<String> delimiter;
  std::optional<String> prefix;
};

class ListObjectsResult {
 public:
  [[nodiscard]] const std::vector<Object>& GetContents() const { return contents; }
  void AddContents(Object value) { contents.push_back(std::move(value)); }
  [[nodiscard]] const std::vector<CommonPrefix>& GetCommonPrefixes() const { return prefixes; }
  void AddCommonPrefixes(CommonPrefix value) { prefixes.push_back(std::move(value)); }

 private:
  std::vector<Object> contents;
  std::vector<CommonPrefix> prefixes;
};

}  // namespace Aws::S3::Model
