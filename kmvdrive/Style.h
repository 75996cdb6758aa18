// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kmv::tool {

/// How text for people looks: with colour on a terminal that wants it, else plain.
class Style {
 public:
  enum class Look { plain, heading, dim, good, bad, notice };

  explicit Style(bool coloured) : coloured_(coloured) {}
  /// Coloured when `fileDescriptor` is a terminal, unless NO_COLOR is set or TERM is "dumb" or unset.
  static Style forTerminal(int fileDescriptor);

  /// `text` in that look. REQUIRES: `text` holds no control characters.
  std::string apply(Look look, std::string_view text) const;

 private:
  bool coloured_;
};

}  // namespace kmv::tool
