// SPDX-License-Identifier: MIT
#include "base/RunOrStop.h"

#include <exception>
#include <string>

#include "base/Fatal.h"

namespace kmv {
namespace {

[[noreturn]] void stopForException(std::string_view label, std::string_view problem) {
  fatal("a task of queue \"" + std::string(label) + "\" ended with an exception: " + std::string(problem));
}

}  // namespace

void runOrStop(const SerialQueue::Task& task, std::string_view label) {
  try {
    task();
  } catch (const std::exception& exception) {
    stopForException(label, exception.what());
  } catch (...) {
    stopForException(label, "of unknown type");
  }
}

}  // namespace kmv
