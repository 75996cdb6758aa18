// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <optional>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/session/Commands.h"

namespace kmv {

/// A process that keeps the volume's mount busy: by its working folder, root, program, an open file or a
/// mapped one. The lowest id; this process's own is a legal answer. None when the kernel itself holds it (a
/// mount on it, a loop device) or the process is another user's, whom a plain user may not look into.
///
/// Reads /proc only and waits for no file system: what other processes use is compared as text first, and
/// nothing but this volume's own files is touched. Cost: some 0.1 ms per process.
std::optional<pid_t> findHolder(const LinuxOptions& options, const TargetVolume& volume);

}  // namespace kmv
