#pragma once

namespace Aws::Client {

// What a caller wants to find again in a callback.
class AsyncCallerContext {
 public:
  virtual ~AsyncCallerContext() = default;
};

}  // namespace Aws::Client
