// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kmv::tool {

/// The whole terminal, on its alternate screen, while this lives: the user's own screen comes back at the
/// end, when a signal ends or stops the program, and when it crashes. REQUIRES: one at a time, and a terminal
/// at standard output.
class Screen {
 public:
  Screen();
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  struct Size {
    std::size_t columns = 80;
    std::size_t lines = 24;
    friend bool operator==(const Size&, const Size&) = default;
  };
  /// As it is now; a change of it interrupts what waits.
  static Size size();

  /// The text that shows these lines, and nothing else.
  static std::string frame(const std::vector<std::string>& lines);
};

/// How many columns a line of standard output may take: those of the terminal, else any number.
std::size_t lineWidth();

/// True when the locale says that the terminal shows UTF-8.
bool showsUTF8();

}  // namespace kmv::tool
