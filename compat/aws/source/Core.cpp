#include <curl/curl.h>

#include <cstdio>

#include "Text.h"
#include "aws/core/Aws.h"
#include "aws/core/client/ClientConfiguration.h"
#include "aws/core/utils/DateTime.h"

namespace Aws {

void InitAPI(const SDKOptions&) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
}

void ShutdownAPI(const SDKOptions&) {
  curl_global_cleanup();
}

namespace Client {

ClientConfiguration::ClientConfiguration() : region(Compat::Environment("AWS_DEFAULT_REGION")) {
  if (region.empty()) region = Compat::Environment("AWS_REGION");
  if (region.empty()) region = "us-east-1";
}

}  // namespace Client

namespace Utils {

DateTime::DateTime(const String& iso) {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (std::sscanf(iso.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d", &year, &month, &day, &hour, &minute,
                  &second) != 6 ||
      month < 1 || month > 12) {
    return;
  }
  // Days since 1970, with years that begin in March.
  const std::int64_t marchYear = month > 2 ? year : year - 1;
  const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const std::int64_t days =
      marchYear * 365 + marchYear / 4 - marchYear / 100 + marchYear / 400 + dayOfYear - 719468;
  seconds = ((days * 24 + hour) * 60 + minute) * 60 + second;
}

}  // namespace Utils

}  // namespace Aws
