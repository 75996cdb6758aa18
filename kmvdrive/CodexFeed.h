// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/CodexVirtualFileSystemWrapper.h>
#include <KMVDriveLibrary/NotificationCenter.h>
#include <KMVDriveLibrary/Value.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "kmvdrive/ValueJSON.h"

namespace kmv::tool {

/// What is known of a Codex volume.
struct CodexStatus {
  std::string path;  ///< of its root
  bool isBuilt = false;
  std::optional<std::int64_t> size = {};  ///< bytes, once it is known
};

/// Finds out which drives are Codex volumes, and tells their state and, when it has been worked out, their
/// size.
///
/// Volumes are asked on threads of their own, so one that hangs gives no answer and delays nothing. Used on
/// the main thread, on which answers arrive while the event loop runs.
class CodexFeed {
 public:
  using Hear = std::function<void(const CodexStatus& status)>;

  explicit CodexFeed(Hear hear);

  /// Asks about a drive that has come; what cannot be a Codex volume is left alone. A volume at the place of an
  /// earlier one is asked anew, though the manager has one wrapper for a root path, for ever.
  void ask(const Dictionary& drive);

  /// True while an answer, or the size of a volume that is built, is still to come.
  bool isWaiting() const { return state_->questions > 0 || !state_->sizesToCome.empty(); }

 private:
  using Wrapper = std::shared_ptr<CodexVirtualFileSystemWrapper>;
  static CodexStatus statusOf(const CodexVirtualFileSystemWrapper& wrapper, bool isBuilt);
  static Wrapper wrapperOfNewVolume(const Wrapper& supplied, const Wrapper& earlier);
  static CodexStatus askVolume(CodexVirtualFileSystemWrapper& wrapper);
  struct Answer {
    Wrapper wrapper;
    CodexStatus status;
  };

  /// Touched on the main thread only.
  struct State {
    Hear hear;
    std::size_t questions = 0;
    std::set<std::string> sizesToCome;  // the roots of volumes that are built
    std::set<std::string> sized;
    std::map<std::string, Wrapper> wrappers;  // by root: of the volume that is or was there last

    void take(const Answer& answer);
    void takeSize(const Wrapper& wrapper, const CodexStatus& status);
  };

  std::shared_ptr<State> state_;
  NotificationCenter::Registration registration_;
};

/// "initialising", "built", "built, 1.5 GB".
std::string codexText(const CodexStatus& status);
/// "state", and "size" in bytes when it is known.
JSON jsonOfCodexVolume(const CodexStatus& status);

}  // namespace kmv::tool
