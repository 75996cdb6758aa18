// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/CodexVirtualFileSystemWrapper.h>
#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/Queue.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/Value.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace kmv::topology {

/// Makes one Codex wrapper for each volume that is asked for, and keeps it.
///
/// Threads: any. What may block on a volume runs on a concurrent queue of its own, since the registry waits
/// for the manager's queue; answers, and whatever decides about wrappers, run on the manager's queue.
/// Each volume is asked one question at a time, so that one which hangs blocks one thread, however many
/// requests are made. Equal requests that wait for their turn share a question, which is thus never older than
/// they are.
class CodexWrapperSupply : public std::enable_shared_from_this<CodexWrapperSupply> {
 public:
  using Wrapper = std::shared_ptr<CodexVirtualFileSystemWrapper>;
  using Wrappers = std::map<std::string, Wrapper>;  // by the path of the root
  using Answer = std::function<void(const Wrapper&)>;

  explicit CodexWrapperSupply(std::shared_ptr<SerialQueue> managerQueue);

  void request(const URL& location, Dictionary drive, Answer answer);
  Wrappers wrappers() const;

 private:
  struct Request {
    URL location;
    Dictionary drive;
    Answer answer;
  };
  void ask(const std::string& volume);
  void askFirstInLine(const std::string& volume);
  std::vector<Request> takeFirstInLine(const std::string& volume);
  void supply(const URL& root, Answer answer);
  void keep(const URL& root, const Wrapper& wrapper);
  Wrapper known(const std::string& path) const;

  const std::shared_ptr<SerialQueue> queue_;
  const std::shared_ptr<ConcurrentQueue> questions_;
  std::map<std::string, std::vector<Answer>> inTheMaking_;  // confined to the queue
  mutable Mutex mutex_;
  std::map<std::string, std::deque<Request>> lines_
      KMV_GUARDED_BY(mutex_);  // of volumes that are being asked
  Wrappers wrappers_ KMV_GUARDED_BY(mutex_);
};

}  // namespace kmv::topology
