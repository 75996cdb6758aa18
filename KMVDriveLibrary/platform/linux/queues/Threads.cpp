// SPDX-License-Identifier: MIT
#include "platform/linux/queues/Threads.h"

#include <atomic>
#include <string>
#include <system_error>

#include "base/Fatal.h"

namespace kmv {
namespace {

constinit std::atomic<bool> isForkedChild = false;

}  // namespace

BlockedSignals::BlockedSignals() {
  sigset_t foreign;
  sigfillset(&foreign);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
    sigdelset(&foreign, fault);
  pthread_sigmask(SIG_BLOCK, &foreign, &before_);
}

void watchForFork() {
  refuseInForkedChild("a thread was to be started");
  static const int isWatched = pthread_atfork(nullptr, nullptr, [] { isForkedChild = true; });
  (void)isWatched;
}

void refuseInForkedChild(std::string_view what) {
  if (!isForkedChild.load(std::memory_order_relaxed)) return;
  fatal(std::string(what) +
        " in a child after fork, where none of the library's threads is left; it would wait "
        "for ever. Only values and exec work there");
}

bool startDetachedThread(const char* name, void (*body)(void*), void* argument) {
  try {
    startThread(name, [body, argument] { body(argument); }).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace kmv
