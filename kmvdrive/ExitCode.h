// SPDX-License-Identifier: MIT
#pragma once

namespace kmv::tool {

/// What the program tells the shell.
enum class ExitCode : int {
  ok = 0,
  error = 1,     ///< something failed; a line on stderr says what
  usage = 2,     ///< the command line makes no sense
  notFound = 3,  ///< no such drive or attribute
  refused = 4,   ///< the platform or another program said no
};

}  // namespace kmv::tool
