// SPDX-License-Identifier: MIT
#include "kmvdrive/Location.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>

namespace kmv::tool {

std::optional<URL> locationOf(const std::string& path) {
  if (path.empty()) return std::nullopt;
  if (path.front() == '/') return URL::fileURLWithPath(path, /*isDirectory=*/false);
  const std::unique_ptr<char, void (*)(void*)> folder(::getcwd(nullptr, 0), std::free);
  if (folder == nullptr || *folder.get() != '/') return std::nullopt;  // the working directory is gone
  return URL::fileURLWithPath(std::string(folder.get()) + "/" + path, /*isDirectory=*/false);
}

}  // namespace kmv::tool
