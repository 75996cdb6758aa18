// SPDX-License-Identifier: MIT
#include "codexvfs/CodexVFSState.h"

#include <KMVDriveLibrary/host/OrvaneLogging.h>

#include <algorithm>
#include <array>
#include <utility>

#include "base/ValueDescription.h"
#include "codexvfs/JSONDocument.h"
#include "platform/Platform.h"

namespace {

/// Real ones have a few hundred bytes.
constexpr std::size_t kLargestDocument = 64 * 1024;

struct Flag {
  CodexVFSFlag::Case flag;
  const char* key;
  const char* complaint;  // when the value is no text; "CodexVFSFlags" is not the type's name, on purpose
};
constexpr std::array<Flag, 5> kFlags{{
    {CodexVFSFlag::softwareVersion, "sw_version", "Could not cast softwareVersion value to string"},
    {CodexVFSFlag::volumeLabel, "volume_label", "Could not cast volumeLabel value to string"},
    {CodexVFSFlag::vfsType, "vfs_type", "Could not cast codexVFSType to CodexVFSFlags.VFSType"},
    {CodexVFSFlag::logFile, "log_file", "Could not cast logfile value to string"},
    {CodexVFSFlag::status, "status", "Could not cast codexStatus to CodexVFSFlags.Status"},
}};

const Flag* flagOf(std::string_view key) {
  for (const Flag& flag : kFlags) {
    if (flag.key == key) return &flag;
  }
  return nullptr;
}

/// Prints the values of one document. Nothing that a real one says comes near the limits; one that is made to
/// be long fills no log.
class Printer {
 public:
  std::string operator()(const kmv::Value& value) {
    constexpr std::size_t kLongestText = 4096;
    std::string text = kmv::clippedDescription(value, std::min(kLongestText, left_));
    left_ -= std::min(left_, text.size());
    return text;
  }

 private:
  std::size_t left_ = kLargestDocument;
};

/// As the platform words it.
std::string failureText(const std::string& fileName, kmv::FileBytes::Failure failure) {
  using Failure = kmv::FileBytes::Failure;
  const std::string start = "The file “" + fileName + "” couldn’t be opened";
  if (failure == Failure::missing) return start + " because there is no such file.";
  if (failure == Failure::notPermitted) return start + " because you don’t have permission to view it.";
  return start + ".";
}

/// The URL of a path. The file system is not asked about it: a document may name a place that hangs.
kmv::URL fileURLOfPath(const std::string& path) {
  std::string whole = path;
  if (!whole.starts_with('/')) {
    if (const auto folder = kmv::Platform::current().files().currentFolder()) whole = *folder + "/" + whole;
  }
  return kmv::URL::fileURLWithPath(whole, /*isDirectory=*/whole.ends_with('/'));
}

}  // namespace

CodexVFSState::CodexVFSState(kmv::URL vfsFilePath) : vfsFilePath_(std::move(vfsFilePath)) {
  updateFlags();
}

kmv::FileBytes CodexVFSState::readDocument() const {
  return kmv::Platform::current().files().readRegularFile(vfsFilePath_.path(), kLargestDocument);
}

void CodexVFSState::updateFlags(const kmv::FileBytes& document) {
  const auto value = document.bytes ? kmv::valueOfJSON(*document.bytes) : std::nullopt;
  const kmv::Dictionary* object = value ? value->asDictionary() : nullptr;
  if (!value) {
    OrvaneLog::defaultLog().logInfo(document.bytes
                                        ? "The data couldn’t be read because it isn’t in the correct format."
                                        : failureText(vfsFilePath_.lastPathComponent(), document.failure));
  }
  if (object == nullptr) {
    OrvaneLog::defaultLog().logInfo("CodexVFS-No json found to parse.");
    return;
  }
  Printer printed;
  for (const auto& [key, member] : *object)
    OrvaneLog::defaultLog().logDebug("Key: " + key + ", Value: " + printed(member));
  updateFlags(*object);
}

void CodexVFSState::updateFlags(const kmv::Dictionary& from) {
  Printer printed;
  for (const auto& [key, value] : from) {
    const Flag* flag = flagOf(key);
    if (flag == nullptr) {  // the apostrophe at the end stands alone, on purpose
      OrvaneLog::defaultLog().logInfo("CodexVFS-Unrecognized codex flag : {" + key + ":" + printed(value) +
                                      "}'");
    } else if (const std::string* text = value.asText()) {
      takeOver(flag->flag, *text);
    } else {
      OrvaneLog::defaultLog().logInfo("CodexVFS-" + std::string(flag->complaint) + ": '" + printed(value) +
                                      "'.");
    }
  }
}

void CodexVFSState::takeOver(CodexVFSFlag::Case flag, const std::string& text) {
  const auto set = [&](Content content) { vfsContents_.insert_or_assign(flag, std::move(content)); };
  switch (flag) {
    case CodexVFSFlag::softwareVersion:
    case CodexVFSFlag::volumeLabel:
      return set(text);
    case CodexVFSFlag::logFile:
      return set(fileURLOfPath(text));
    case CodexVFSFlag::vfsType:
      if (text == "device") return set(CodexVFSFlag::VFSType::device);
      break;
    case CodexVFSFlag::status:
      if (text == "built") return set(CodexVFSFlag::Status::built);
      if (text == "initialising") return set(CodexVFSFlag::Status::initialising);
      break;
  }
  vfsContents_.erase(flag);
}

std::string CodexVFSState::softwareVersion() const {
  return valueOf<std::string>(CodexVFSFlag::softwareVersion).value_or("");
}

std::string CodexVFSState::volumeLabel() const {
  return valueOf<std::string>(CodexVFSFlag::volumeLabel).value_or("unknown");
}
