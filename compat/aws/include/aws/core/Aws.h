#pragma once

namespace Aws {

struct SDKOptions {};

// Once per process, before the first client and after the last one; not thread-safe. The duty of
// whoever owns the process.
void InitAPI(const SDKOptions& options);
void ShutdownAPI(const SDKOptions& options);

}  // namespace Aws
