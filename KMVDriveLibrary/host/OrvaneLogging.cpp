// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/host/OrvaneLogging.h>

#include <utility>

OrvaneLog& OrvaneLog::defaultLog() {
  static auto* log = new OrvaneLog;  // never destroyed: other threads may log until the process is gone
  return *log;
}

void OrvaneLog::setSink(Sink sink) {
  auto shared = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
  const kmv::MutexLock lock(mutex_);
  sink_.swap(shared);
}

bool OrvaneLog::hasSink() const {
  const kmv::MutexLock lock(mutex_);
  return sink_ != nullptr;
}

void OrvaneLog::log(Level level, std::string_view line) const {
  std::shared_ptr<const Sink> sink;
  {
    const kmv::MutexLock lock(mutex_);
    sink = sink_;
  }
  if (sink != nullptr) (*sink)(level, line);  // outside the lock: a sink may log or set another
}

void OrvaneLog::logDebug(std::string_view line) const {
  log(Level::debug, line);
}
void OrvaneLog::logInfo(std::string_view line) const {
  log(Level::info, line);
}
void OrvaneLog::logError(std::string_view line) const {
  log(Level::error, line);
}
