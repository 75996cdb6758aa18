// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kmv {

/// What a name stands for; `unknown` has not been looked at.
enum class What : std::uint8_t { unknown, file, folder, link, nothing };

/// What a look at an item told.
struct SeenItem {
  What what = What::unknown;
  std::uint64_t size = 0;
  std::optional<std::string> attribute = {};  ///< of a file without a size
};

/// The questions that a walk asks a volume about one item after the other, as few as its size needs.
/// Threads: any, several at once.
class ItemLook {
 public:
  virtual ~ItemLook() = default;

  /// Looks at what `name` names in the folder behind `descriptor`, or at the path `name` with AT_FDCWD. Links
  /// are not followed.
  virtual void lookAt(int descriptor, const char* name, SeenItem& item) = 0;

  /// The attribute of what the path leads to, links followed.
  virtual std::optional<std::string> valueByPath(const std::string& path) const = 0;
};

/// Hook of each system's folder. An empty `attribute` is never asked for. `volume` is a path on the volume.
std::unique_ptr<ItemLook> makeItemLook(const std::string& attribute, const std::string& volume);

}  // namespace kmv
