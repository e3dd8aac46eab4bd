#pragma once

#include <memory>
#include <utility>

#include "aws/core/utils/DateTime.h"
#include "aws/core/utils/memory/stl/AWSStreamFwd.h"
#include "aws/core/utils/memory/stl/AWSString.h"
#include "aws/core/utils/memory/stl/AWSVector.h"

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
  [[nodiscard]] const String& GetName() const { return name; }
  void SetName(String value) { name = std::move(value); }

 private:
  String name;
};

class CommonPrefix {
 public:
  [[nodiscard]] const String& GetPrefix() const { return prefix; }
  void SetPrefix(String value) { prefix = std::move(value); }

 private:
  String prefix;
};

class ObjectIdentifier : public OfKey {};

class Object : public OfKey {
 public:
  [[nodiscard]] long long GetSize() const { return size; }
  void SetSize(long long value) { size = value; }
  [[nodiscard]] const Utils::DateTime& GetLastModified() const { return lastModified; }
  void SetLastModified(const Utils::DateTime& value) { lastModified = value; }

 private:
  long long size = 0;
  Utils::DateTime lastModified;
};

// Why one object of a request for many failed.
class Error : public OfKey {
 public:
  [[nodiscard]] const String& GetCode() const { return code; }
  void SetCode(String value) { code = std::move(value); }
  [[nodiscard]] const String& GetMessage() const { return message; }
  void SetMessage(String value) { message = std::move(value); }

 private:
  String code;
  String message;
};

class Delete {
 public:
  [[nodiscard]] const Vector<ObjectIdentifier>& GetObjects() const { return objects; }
  void AddObjects(ObjectIdentifier value) { objects.push_back(std::move(value)); }

 private:
  Vector<ObjectIdentifier> objects;
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
  [[nodiscard]] const Vector<Error>& GetErrors() const { return errors; }
  void AddErrors(Error value) { errors.push_back(std::move(value)); }

 private:
  Vector<Error> errors;
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
  [[nodiscard]] const Vector<Bucket>& GetBuckets() const { return buckets; }
  void AddBuckets(Bucket value) { buckets.push_back(std::move(value)); }

 private:
  Vector<Bucket> buckets;
};

class ListObjectsRequest : public OfBucket {
 public:
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
  String delimiter;
  String prefix;
  bool delimiterSet = false;
  bool prefixSet = false;
};

class ListObjectsResult {
 public:
  [[nodiscard]] const Vector<Object>& GetContents() const { return contents; }
  void AddContents(Object value) { contents.push_back(std::move(value)); }
  [[nodiscard]] const Vector<CommonPrefix>& GetCommonPrefixes() const { return commonPrefixes; }
  void AddCommonPrefixes(CommonPrefix value) { commonPrefixes.push_back(std::move(value)); }

 private:
  Vector<Object> contents;
  Vector<CommonPrefix> commonPrefixes;
};

}  // namespace Aws::S3::Model
