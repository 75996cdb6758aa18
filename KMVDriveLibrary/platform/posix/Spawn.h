// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "platform/ChildProcess.h"

namespace kmv {

/// Runs a program to its end with exactly this environment ("NAME=value"); see `ChildProcess::run`. Never
/// copies this process's memory, however much it has.
ChildProcess::Result spawnAndWait(const ChildProcess::Request& request,
                                  const std::vector<std::string>& environment);

/// This process's environment, as `spawnAndWait` takes it.
std::vector<std::string> environmentOfThisProcess();

}  // namespace kmv
