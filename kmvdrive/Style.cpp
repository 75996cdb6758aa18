// SPDX-License-Identifier: MIT
#include "kmvdrive/Style.h"

#include <unistd.h>

#include <cstdlib>

namespace kmv::tool {
namespace {

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

const char* sequence(Style::Look look) {
  switch (look) {
    case Style::Look::plain:
      return "";
    case Style::Look::heading:
      return "\x1b[1m";
    case Style::Look::dim:
      return "\x1b[2m";
    case Style::Look::good:
      return "\x1b[32m";
    case Style::Look::bad:
      return "\x1b[31m";
    case Style::Look::notice:
      return "\x1b[33m";
  }
  return "";
}

}  // namespace

Style Style::forTerminal(int fileDescriptor) {
  const bool wanted = variable("NO_COLOR").empty() && !variable("TERM").empty() && variable("TERM") != "dumb";
  return Style(wanted && isatty(fileDescriptor) == 1);
}

std::string Style::apply(Look look, std::string_view text) const {
  if (!coloured_ || look == Look::plain || text.empty()) return std::string(text);
  return std::string(sequence(look)).append(text).append("\x1b[0m");
}

}  // namespace kmv::tool
