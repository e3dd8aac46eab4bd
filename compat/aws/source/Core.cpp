#include <curl/curl.h>

#include "aws/core/Aws.h"

namespace Aws {

void InitAPI(const SDKOptions&) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
}

void ShutdownAPI(const SDKOptions&) {
  curl_global_cleanup();
}

}  // namespace Aws
