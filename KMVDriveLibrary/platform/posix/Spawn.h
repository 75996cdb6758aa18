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

/// This process's environment, with a language in which every program says the same, in UTF-8.
std::vector<std::string> plainEnvironment();

}  // namespace kmv
