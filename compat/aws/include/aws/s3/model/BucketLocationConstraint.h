#pragma once

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

}  // namespace Aws::S3::Model
