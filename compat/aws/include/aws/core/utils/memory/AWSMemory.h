#pragma once

#include <memory>
#include <utility>

namespace Aws {

template <typename T, typename... Args>
T* New(const char*, Args&&... args) {
  return new T(std::forward<Args>(args)...);
}

template <typename T, typename... Args>
std::shared_ptr<T> MakeShared(const char*, Args&&... args) {
  return std::make_shared<T>(std::forward<Args>(args)...);
}

}  // namespace Aws
