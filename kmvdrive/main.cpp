// SPDX-License-Identifier: MIT
#include <fcntl.h>

#include <cerrno>

#include "kmvdrive/CommandLine.h"

namespace {

/// A program started with a standard stream closed would give that number to the next file it opens, and then
/// write its output there. Each closed one becomes a descriptor that refuses to be used.
void occupyClosedStandardStreams() {
  for (int stream = 0; stream <= 2; ++stream) {
    if (fcntl(stream, F_GETFD) != -1 || errno != EBADF) continue;
    (void)!open("/dev/null", stream == 0 ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace

int main(int argc, char** argv) {
  occupyClosedStandardStreams();
  return static_cast<int>(kmv::tool::runCommandLine(argc, argv));
}
