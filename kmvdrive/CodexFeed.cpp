// SPDX-License-Identifier: MIT
#include "kmvdrive/CodexFeed.h"

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
        mainQueue().async([weak, wrapper, status = statusOf(*wrapper, /*isBuilt=*/true)] {
          if (const auto state = weak.lock()) state->takeSize(wrapper, status);
        });
      });
}

void CodexFeed::State::takeSize(const Wrapper& wrapper, const CodexStatus& status) {
  // It may be faster than the answer that brings its wrapper; else another one is of a volume that was there before.
  if (questions == 0 && wrappers[status.path] != wrapper) return;
  sizesToCome.erase(status.path);
  sized.insert(status.path);
  hear(status);
}

void CodexFeed::State::take(const Answer& answer) {
  const CodexStatus& status = answer.status;
  wrappers[status.path] = answer.wrapper;
  if (!status.size && sized.contains(status.path)) return;  // its size was faster
  if (status.isBuilt && !status.size) sizesToCome.insert(status.path);
  hear(status);
}

CodexStatus CodexFeed::statusOf(const CodexVirtualFileSystemWrapper& wrapper, bool isBuilt) {
  return {wrapper.vfsRoot().path(), isBuilt, wrapper.estimatedVFSSize()};
}

/// A wrapper that is sized tells the earlier volume's size for ever. One that is not still looks at whatever
/// volume is at its root; a second one would poll beside it, for ever if the volume is never built.
CodexFeed::Wrapper CodexFeed::wrapperOfNewVolume(const Wrapper& supplied, const Wrapper& earlier) {
  if (earlier == nullptr) return supplied;
  return earlier->sizeIsCalculated() ? CodexVirtualFileSystemWrapper::initWithRoot(earlier->vfsRoot())
                                     : earlier;
}

CodexStatus CodexFeed::askVolume(CodexVirtualFileSystemWrapper& wrapper) {
  CodexStatus status = statusOf(wrapper, wrapper.vfsIsReady());
  if (!status.isBuilt || status.size) return status;
  // One that was first seen as built by a mere reading is never sized unless it is asked for, and it may have seen
  // an earlier volume.
  wrapper.updateWrapper(/*shouldUpdateSize=*/true);
  return statusOf(wrapper, wrapper.vfsIsReady());
}

void CodexFeed::ask(const Dictionary& drive) {
  const std::string* kind = drive.text(key::kVolumeKind);
  const URL* url = drive.url(key::kVolumePath);
  if (url == nullptr || kind == nullptr || kind->find("fuse") == std::string::npos) return;
  ++state_->questions;
  state_->sized.erase(url->path());
  const Wrapper earlier = state_->wrappers[url->path()];
  const auto tell = [weak = std::weak_ptr<State>(state_)](std::optional<Answer> answer) {
    mainQueue().async([weak, answer = std::move(answer)] {
      const auto state = weak.lock();
      if (state == nullptr) return;
      --state->questions;
      if (answer) state->take(*answer);
    });
  };
  KMVDriveWrapperManager::sharedInstance().codexVFSWrapper(
      *url, drive, /*requireIsReady=*/false, [tell, earlier](const Wrapper& supplied) {
        if (supplied == nullptr) return tell(std::nullopt);
        // Not here: drives are filed on this queue, and the volume may keep whoever asks waiting.
        makeSerialQueue("kmvdrive.codex")->async([tell, earlier, supplied] {
          const Wrapper wrapper = wrapperOfNewVolume(supplied, earlier);
          tell(Answer{wrapper, askVolume(*wrapper)});
        });
      });
}

std::string codexText(const CodexStatus& status) {
  if (!status.isBuilt) return "initialising";
  return status.size ? "built, " + sizeText(static_cast<std::uint64_t>(*status.size)) : "built";
}

JSON jsonOfCodexVolume(const CodexStatus& status) {
  JSON volume = {{"state", status.isBuilt ? "built" : "initialising"}};
  if (status.size) volume["size"] = *status.size;
  return volume;
}

}  // namespace kmv::tool
