// SPDX-License-Identifier: MIT
#pragma once

#include "support/Process.h"
#include "support/Testing.h"

namespace kmv::test {

/// A pseudo terminal, and what was shown on it.
class Terminal {
 public:
  Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
    grantpt(master_);
    unlockpt(master_);
    program_ = open(name().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);  // held, so that the rest is never lost
  }
  ~Terminal() {
    close(program_);
    close(master_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  std::string name() const { return ptsname(master_); }
  int programsEnd() const { return program_; }

  /// Waits until `text` was shown, behind what this waited for before.
  bool shows(const std::string& text) {
    return eventually([&] { return isShown(text); });
  }
  /// The same without waiting.
  bool isShown(const std::string& text) {
    char bytes[4096];
    for (ssize_t count = 0; (count = read(master_, bytes, sizeof bytes)) > 0;)
      shown_.append(bytes, static_cast<std::size_t>(count));
    const std::size_t found = shown_.find(text, seen_);
    if (found != std::string::npos) seen_ = found + text.size();
    return found != std::string::npos;
  }
  const std::string& shown() const { return shown_; }

 private:
  int master_;
  int program_ = -1;
  std::string shown_;
  std::size_t seen_ = 0;
};

}  // namespace kmv::test
