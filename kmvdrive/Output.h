// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kmv::tool {

/// The program's output, unbuffered: a reader of a pipe has each line when it is made.
///
/// A reader that goes away is no error, it has simply seen enough. A stalled reader does not keep the program
/// from obeying a stop signal.
class Output {
 public:
  /// Owns neither descriptor. `stopFileDescriptor` polls readable when the program is to end.
  Output(int fileDescriptor, int stopFileDescriptor) : output_(fileDescriptor), stop_(stopFileDescriptor) {}

  /// Writes all of `text`. False when that was not possible, and ever after: nobody reads, a stop signal came
  /// while the reader was stalled, or writing failed.
  bool write(std::string_view text);

  /// True when writing ended by an error that the user must hear of.
  bool failed() const { return !failure_.empty(); }
  const std::string& failure() const { return failure_; }

 private:
  bool waitForRoom();
  void endWithError(int error);

  int output_;
  int stop_;
  bool ended_ = false;
  std::string failure_;
};

}  // namespace kmv::tool
