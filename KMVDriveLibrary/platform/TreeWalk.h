// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kmv {

/// One file of a walk. Its texts are valid until the visit returns.
struct WalkedFile {
  std::string_view path;
  std::uint64_t size;  ///< bytes, of the item itself when it is a link
  std::optional<std::string_view>
      attribute;  ///< of a file of size 0: the attribute asked for, if it can be read
};

/// Is told of one file; false ends the walk. Must not throw.
using VisitFile = std::function<bool(const WalkedFile&)>;

/// Visits the files of a tree. Any thread.
class TreeWalk {
 public:
  virtual ~TreeWalk() = default;

  /// Visits every file below `folder` on the calling thread, depth first and in the order in which the system
  /// lists the folders, with its size and, where that is 0, the value of `attribute` (empty: none is asked
  /// for). Names that begin with "._" are not listed. What is missing or cannot be listed is passed over.
  /// Links are followed to folders, and no folder is entered that is being walked already. Paths are
  /// `folder`, "/" and names.
  virtual void visitFiles(const std::string& folder, const std::string& attribute,
                          const VisitFile& visit) = 0;
};

}  // namespace kmv
