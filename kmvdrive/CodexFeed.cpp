// SPDX-License-Identifier: MIT
#include "kmvdrive/CodexFeed.h"

#include <KMVDriveLibrary/CodexVirtualFileSystemWrapper.h>
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/KMVDriveWrapperManager.h>
#include <KMVDriveLibrary/Queue.h>
#include <KMVDriveLibrary/host/OrvaneApp.h>

#include <utility>

#include "kmvdrive/DisplayText.h"

namespace kmv::tool {

CodexFeed::CodexFeed(Hear hear) : state_(std::make_shared<State>()) {
  state_->hear = std::move(hear);
  registration_ = NotificationCenter::defaultCenter().addObserver(
      virtualFileSystemWrapperHasUpdated,
      [weak = std::weak_ptr<State>(state_)](const Notification& notification) {
        const auto wrapper =
            std::dynamic_pointer_cast<CodexVirtualFileSystemWrapper>(notification.object.object());
        if (wrapper == nullptr) return;
        CodexStatus status{wrapper->vfsRoot().path(), true, wrapper->estimatedVFSSize()};
        mainQueue().async([weak, status = std::move(status)] {
          const auto state = weak.lock();
          if (state == nullptr) return;
          state->sizesToCome.erase(status.path);
          state->sized.insert(status.path);
          state->hear(status);
        });
      });
}

void CodexFeed::ask(const Dictionary& drive) {
  const std::string* kind = drive.text(key::kVolumeKind);
  const URL* url = drive.url(key::kVolumePath);
  if (url == nullptr || kind == nullptr || kind->find("fuse") == std::string::npos) return;
  ++state_->questions;
  const auto answer = [weak = std::weak_ptr<State>(state_)](std::optional<CodexStatus> status) {
    mainQueue().async([weak, status = std::move(status)] {
      const auto state = weak.lock();
      if (state == nullptr) return;
      --state->questions;
      if (!status) return;
      if (!status->size && state->sized.contains(status->path)) return;  // its size was faster
      if (status->isBuilt && !status->size) state->sizesToCome.insert(status->path);
      state->hear(*status);
    });
  };
  KMVDriveWrapperManager::sharedInstance().codexVFSWrapper(
      *url, drive, /*requireIsReady=*/false, [answer](const KMVDriveWrapperManager::CodexWrapper& wrapper) {
        if (wrapper == nullptr) return answer(std::nullopt);
        // Not here: drives are filed on this queue, and the volume may keep whoever asks waiting.
        makeSerialQueue("kmvdrive.codex")->async([answer, wrapper] {
          CodexStatus status{wrapper->vfsRoot().path(), wrapper->vfsIsReady(), std::nullopt};
          status.size = wrapper->estimatedVFSSize();
          answer(std::move(status));
        });
      });
}

std::string codexText(const CodexStatus& status) {
  if (!status.isBuilt) return "initialising";
  return status.size ? "built, " + sizeText(*status.size) : "built";
}

JSON jsonOfCodexVolume(const CodexStatus& status) {
  JSON volume = {{"state", status.isBuilt ? "built" : "initialising"}};
  if (status.size) volume["size"] = *status.size;
  return volume;
}

}  // namespace kmv::tool
