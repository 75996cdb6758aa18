// SPDX-License-Identifier: MIT
#pragma once

namespace kmv::tool {

/// Calls `handler`, with `flags` of sigaction(2), when the signal comes.
void handleSignal(int signal, void (*handler)(int), int flags);

/// Turns SIGINT and SIGTERM into a descriptor that polls readable, for one poll loop over everything. The
/// first signal asks for a clean end; the second one of its kind has its usual effect, should the clean end
/// take too long. REQUIRES: one at a time in a process.
class StopSignals {
 public:
  /// Failure: throws std::system_error when the process is out of descriptors.
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Readable from the first signal on. Poll it, do not read it.
  int fileDescriptor() const { return readEnd_; }

 private:
  int readEnd_ = -1;
  int writeEnd_ = -1;
};

}  // namespace kmv::tool
