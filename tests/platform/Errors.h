#pragma once

#include <cerrno>

namespace qv::kelvo {

// What the platform's calls answer, by the system's own numbers.
#ifdef _WIN32
inline constexpr int kNoFile = 2, kNoDirectory = 3, kNameTaken = 183, kBadParts = 87,
                     kBadOffset = 131, kFileClosed = 6, kFileReadOnly = 5;
#else
inline constexpr int kNoFile = ENOENT, kNoDirectory = ENOENT, kNameTaken = EEXIST,
                     kBadParts = EINVAL, kBadOffset = EINVAL, kFileClosed = EBADF,
                     kFileReadOnly = EBADF;
#endif

}  // namespace qv::kelvo
