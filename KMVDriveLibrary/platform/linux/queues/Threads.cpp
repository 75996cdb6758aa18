// SPDX-License-Identifier: MIT
#include "platform/linux/queues/Threads.h"

#include <system_error>

namespace kmv {

BlockedSignals::BlockedSignals() {
  sigset_t foreign;
  sigfillset(&foreign);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
    sigdelset(&foreign, fault);
  pthread_sigmask(SIG_BLOCK, &foreign, &before_);
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
