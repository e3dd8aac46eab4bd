#include "platform/DriveSpace.h"

#include <boost/filesystem/operations.hpp>

#include "platform/NativePath.h"

namespace qv::kelvo {

std::string MeasureSpace(const std::string& path, DriveSpace& space) {
  boost::system::error_code error;
  const boost::filesystem::space_info info = boost::filesystem::space(NativePath(path), error);
  if (error) return error.message();
  space = {info.capacity, info.free, info.available};
  return {};
}

}  // namespace qv::kelvo
