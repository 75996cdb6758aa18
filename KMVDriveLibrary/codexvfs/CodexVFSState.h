// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/Value.h>

#include <map>
#include <optional>
#include <string>
#include <variant>

#include "platform/Files.h"

/// What a state document can say.
struct CodexVFSFlag {
  enum Case { softwareVersion, volumeLabel, vfsType, logFile, status };
  enum class Status { built, initialising };
  enum class VFSType { device };
};

/// The small JSON document at the top of a Codex volume that tells what it is and whether its contents are
/// built. What it once said stays until it says something else; see `updateFlags` for the two exceptions.
///
/// Threads: none of its own; its wrapper uses it on the wrapper's update queue.
class CodexVFSState {
 public:
  /// Reads the document at once.
  explicit CodexVFSState(kmv::URL vfsFilePath);

  /// The document as it is on the volume now; waits for the volume.
  kmv::FileBytes readDocument() const;

  /// Reads the document and takes over what it says. Every flag that it names replaces the one before; one
  /// that it does not name stays, and so does one of the wrong type. A type or status that is unknown takes
  /// the flag away, silently: intended. Whatever is wrong is logged.
  void updateFlags() { updateFlags(readDocument()); }
  /// The same with what was read before.
  void updateFlags(const kmv::FileBytes& document);
  /// The same with what a document was found to say.
  void updateFlags(const kmv::Dictionary& from);

  std::string softwareVersion() const;
  std::string volumeLabel() const;
  std::optional<CodexVFSFlag::VFSType> vfsType() const {
    return valueOf<CodexVFSFlag::VFSType>(CodexVFSFlag::vfsType);
  }
  std::optional<kmv::URL> logFile() const { return valueOf<kmv::URL>(CodexVFSFlag::logFile); }
  std::optional<CodexVFSFlag::Status> status() const {
    return valueOf<CodexVFSFlag::Status>(CodexVFSFlag::status);
  }

 private:
  using Content = std::variant<std::string, CodexVFSFlag::VFSType, kmv::URL, CodexVFSFlag::Status>;

  template <typename T>
  std::optional<T> valueOf(CodexVFSFlag::Case flag) const {
    const auto found = vfsContents_.find(flag);
    const T* content = found == vfsContents_.end() ? nullptr : std::get_if<T>(&found->second);
    return content == nullptr ? std::nullopt : std::optional<T>(*content);
  }
  void takeOver(CodexVFSFlag::Case flag, const std::string& text);

  kmv::URL vfsFilePath_;
  std::map<CodexVFSFlag::Case, Content> vfsContents_;
};
