// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>

namespace kmv {

/// Asks again when a signal came between: a walk may run on a thread of the host's.
template <typename Call>
auto uninterrupted(const Call& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

enum class What : std::uint8_t { unknown, file, folder, link, nothing };

/// What a look at an item told.
struct SeenItem {
  What what = What::unknown;
  std::uint64_t size = 0;
  std::optional<std::string> attribute = {};  // of a file without a size
};

/// The questions that a walk asks a volume about one item after the other, as few as its size needs. Threads:
/// any, several at once.
class ItemLook {
 public:
  /// An empty `attribute` is never asked for. `volume` is a path on the volume.
  ItemLook(std::string attribute, const std::string& volume);

  /// Looks at what `name` names in the folder behind `descriptor`, or at the path `name` with AT_FDCWD. Links
  /// are not followed.
  void lookAt(int descriptor, const char* name, SeenItem& item);

  /// The attribute of what the path leads to, links followed.
  std::optional<std::string> valueByPath(const std::string& path) const;

 private:
  bool lookThroughItem(int descriptor, const char* name, SeenItem& item);
  std::optional<std::string> valueByName(int descriptor, const char* name);
  template <typename Get>
  std::optional<std::string> firstValue(const Get& get) const;

  const std::string plainName_;
  const std::string name_;
  const bool isFuse_;
  std::atomic<bool> cacheIsKnown_{false};
  std::atomic<bool> cachesNothing_{false};
  std::atomic<bool> hasGetxattrat_{true};
};

}  // namespace kmv
