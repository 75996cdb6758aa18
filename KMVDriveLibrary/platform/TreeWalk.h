// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kmv {

/// One file of a walk.
/// Lifetime: its texts are valid until the visit returns.
struct WalkedFile {
  std::string_view path;
  std::uint64_t size;  ///< bytes, of the item itself when it is a link
  /// Of a file of size 0: the attribute asked for, if it can be read.
  std::optional<std::string_view> attribute;
};

/// Called for each file; false ends the walk, and so does an exception.
using VisitFile = std::function<bool(const WalkedFile&)>;

/// Visits the files of a tree.
/// Thread: any.
class TreeWalk {
 public:
  virtual ~TreeWalk() = default;

  /// Visits every file below `folder` on the calling thread, depth first and in the order in which the system
  /// lists the folders, with its size and, where that is 0, the value of `attribute` (empty: none is asked
  /// for).
  /// Names that begin with "._" are not listed.
  /// Missing and unlistable folders are skipped.
  /// Links to folders are followed, except into a folder that is being walked already (cycles).
  /// Paths are `folder`, "/" and names.
  /// Failure: throws what `visit` throws, after the walk has ended.
  void visitFiles(const std::string& folder, const std::string& attribute, const VisitFile& visit) {
    std::exception_ptr thrown;
    visitEachFile(folder, attribute, [&](const WalkedFile& file) {
      try {
        return visit(file);
      } catch (...) {
        thrown = std::current_exception();
        return false;
      }
    });
    if (thrown) std::rethrow_exception(thrown);
  }

 private:
  /// The same for a backend, whose helpers may be at work while it visits: this `visit` never throws.
  virtual void visitEachFile(const std::string& folder, const std::string& attribute,
                             const VisitFile& visit) = 0;
};

}  // namespace kmv
