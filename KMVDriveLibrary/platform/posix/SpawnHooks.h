// SPDX-License-Identifier: MIT
#pragma once

#include <spawn.h>

// What each system's folder defines for Spawn.cpp.

namespace kmv {

/// A pipe whose ends are closed by exec; false with `errno` on failure.
bool makePipe(int (&ends)[2]);

/// No descriptor above the standard three reaches the child, whoever opened it and however. Called last, so
/// flags that the system needs are added to those of `attributes`. `inheritsErrors`: the child's standard
/// error is this process's own.
void closeForeignDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t& attributes,
                             bool inheritsErrors);

/// This process's environment, ended by null; may be null itself.
char** processEnvironment();

}  // namespace kmv
