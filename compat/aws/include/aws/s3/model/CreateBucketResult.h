#pragma once

namespace Aws::S3::Model {

class CreateBucketResult {};

}  // namespace Aws::S3::Model
