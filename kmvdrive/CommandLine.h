// SPDX-License-Identifier: MIT
#pragma once

#include "kmvdrive/ExitCode.h"

namespace kmv::tool {

/// Reads the arguments, runs the command they name and returns what to tell the shell. Errors go to stderr.
ExitCode runCommandLine(int argc, const char* const* argv);

}  // namespace kmv::tool
