#include "archiving/AwsAddress.h"

#include <algorithm>

namespace qvArchiving {

namespace {

using Constraint = Aws::S3::Model::BucketLocationConstraint;

struct Region {
  const char* name;
  Constraint constraint;
};

// In the order in which an address is searched for them.
constexpr Region kRegions[] = {
    {"us-east-1", Constraint::us_east_1},           {"us-east-2", Constraint::us_east_2},
    {"us-west-1", Constraint::us_west_1},           {"us-west-2", Constraint::us_west_2},
    {"eu-west-1", Constraint::eu_west_1},           {"eu-west-2", Constraint::eu_west_2},
    {"eu-west-3", Constraint::eu_west_3},           {"eu-central-1", Constraint::eu_central_1},
    {"ap-southeast-1", Constraint::ap_southeast_1}, {"ap-southeast-2", Constraint::ap_southeast_2},
    {"ap-northeast-1", Constraint::ap_northeast_1}, {"ap-northeast-2", Constraint::ap_northeast_2},
    {"sa-east-1", Constraint::sa_east_1},           {"ca-central-1", Constraint::ca_central_1},
    {"ap-south-1", Constraint::ap_south_1},         {"cn-north-1", Constraint::cn_north_1},
    {"cn-northwest-1", Constraint::cn_northwest_1}, {"us-gov-west-1", Constraint::us_gov_west_1}};

constexpr char kScheme[] = "https://";
constexpr char kShare[] = "\\\\";
constexpr char kService[] = ".s3";

}  // namespace

std::string ForwardSlashes(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

AwsAddress ParseAddress(const std::string& fullName) {
  AwsAddress address;
  for (const Region& region : kRegions) {
    if (fullName.find(region.name) == std::string::npos) continue;
    address.region = region.name;
    address.constraint = region.constraint;
    break;
  }
  std::string text = fullName;
  if (text.starts_with(kShare)) {
    text.erase(0, sizeof(kShare) - 1);
  } else if (text.starts_with(kScheme)) {
    text.erase(0, sizeof(kScheme) - 1);
  }
  text = ForwardSlashes(text);
  if (const std::size_t end = text.find(kService); end != std::string::npos) {
    address.bucket = text.substr(0, end);
  }
  return address;
}

}  // namespace qvArchiving
