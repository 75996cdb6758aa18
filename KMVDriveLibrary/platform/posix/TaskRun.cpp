// SPDX-License-Identifier: MIT
#include "platform/posix/TaskRun.h"

#include <exception>
#include <string>

#include "base/Fatal.h"

namespace kmv {
namespace {

[[noreturn]] void stopForException(std::string_view queue, std::string_view problem) {
  fatal("a task of queue \"" + std::string(queue) + "\" ended with an exception: " + std::string(problem));
}

}  // namespace

void runOrStop(const SerialQueue::Task& task, std::string_view queue) {
  try {
    task();
  } catch (const std::exception& exception) {
    stopForException(queue, exception.what());
  } catch (...) {
    stopForException(queue, "of unknown type");
  }
}

}  // namespace kmv
