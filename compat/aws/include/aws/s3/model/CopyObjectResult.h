#pragma once

namespace Aws::S3::Model {

class CopyObjectResult {};

}  // namespace Aws::S3::Model
