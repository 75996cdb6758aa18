// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <string>

#include "base/Text.h"
#include "platform/linux/session/ProcessFiles.h"
#include "targets.h"

namespace kmv::fuzz {

void processFiles(std::string_view input) {
  isUninterruptible(input);
  mountIdOfDescriptor(input);
  const std::string path = "/" + pathInMaps(input);
  // However hostile a mapped file's name is, it stays one line and comes back verbatim.
  const std::string written = "7f00-7f10 r--p 00000000 fd:1a 12    " + path;
  std::string_view text = written;
  const auto mapping = parseMapping(takeLine(text));
  if (!mapping || mapping->path != path || !(mapping->device == DeviceNumber{0xfd, 0x1a})) std::abort();
  for (std::string_view rest = input; !rest.empty();) {
    const std::string_view line = takeLine(rest);
    const auto entry = parseMapping(line);
    if (entry && !line.ends_with(entry->path)) std::abort();
  }
}

}  // namespace kmv::fuzz
