#pragma once

#include <memory>
#include <utility>

#include "aws/core/utils/memory/stl/AWSStreamFwd.h"

namespace Aws::S3::Model {

class GetObjectResult {
 public:
  [[nodiscard]] IOStream& GetBody() const { return *body; }
  void ReplaceBody(std::shared_ptr<IOStream> stream) { body = std::move(stream); }

 private:
  std::shared_ptr<IOStream> body;
};

}  // namespace Aws::S3::Model
