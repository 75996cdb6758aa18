// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Mutex.h>

#include <functional>
#include <memory>
#include <string_view>

/// What this library needs from the maker's logging framework: one shared logger with three levels.
/// Lines are dropped until the host sets a sink.
/// Threads: every member may be called from any thread.
class KMV_EXPORT OrvaneLog {
 public:
  enum class Level { debug, info, error };
  /// Receives each line without a line feed, on the thread that logs.
  /// Must be thread-safe: several threads may log at once.
  using Sink = std::function<void(Level, std::string_view line)>;

  /// The shared logger.
  /// Lifetime: the process.
  /// Selector: OrvaneLog.default
  static OrvaneLog& defaultLog();

  /// Replaces the sink; an empty one drops lines again.
  /// A line that another thread is logging may still reach the old sink.
  void setSink(Sink sink);
  /// Whether anybody hears the lines, so that lines that cost much to make need not be made.
  bool hasSink() const;

  /// Selector: logDebug:
  void logDebug(std::string_view line) const;
  /// Selector: logInfo:
  void logInfo(std::string_view line) const;
  /// Selector: logError:
  void logError(std::string_view line) const;

 private:
  void log(Level level, std::string_view line) const;

  mutable kmv::Mutex mutex_;
  std::shared_ptr<const Sink> sink_ KMV_GUARDED_BY(mutex_);
};
