// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/linux/LinuxOptions.h"
#include "platform/posix/FileDescriptor.h"

namespace kmv {

/// The kernel's mountinfo file, opened lazily. The kernel reports a change once for each open file, so
/// whoever must miss none has a file of its own: two pollers of one file would take the reports from each
/// other. Thread: one at a time.
class MountInfoFile {
 public:
  explicit MountInfoFile(const LinuxOptions& options);

  /// True once after each change (edge-triggered), and at first. Always true where a change cannot be
  /// noticed: the file is missing, or is a plain file. Cost: one poll.
  bool hasChanged();

  /// The whole text; none when it cannot be read. A long table takes several reads, between which it can
  /// change.
  std::optional<std::string> read();

  /// To be polled for `epollEvents`, which consumes the report; -1 when there is no file.
  int descriptor();
  std::uint32_t epollEvents() const;

 private:
  bool open();

  const std::string path_;
  FileDescriptor file_;
};

}  // namespace kmv
