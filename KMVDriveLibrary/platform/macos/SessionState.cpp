// SPDX-License-Identifier: MIT
#include "platform/macos/SessionState.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <chrono>
#include <utility>

#include "base/Fatal.h"
#include "base/RunOrStop.h"
#include "platform/macos/MacDisk.h"
#include "platform/macos/QueueScope.h"
#include "platform/macos/Queues.h"
#include "platform/macos/Values.h"

namespace kmv::macos {
namespace {

/// With no disk appearing for so long, all that were there at the start have appeared.
constexpr std::chrono::milliseconds kQuietPeriod{200};

/// Why a command was refused; none when it was not.
std::optional<Dictionary> recordOf(DADissenterRef dissenter) {
  if (dissenter == nullptr) return std::nullopt;
  const auto record = valueOf(dissenter);  // the platform has a dictionary with our keys
  if (record && record->asDictionary() != nullptr) return *record->asDictionary();
  return Dictionary{{key::kDissenterStatus, DADissenterGetStatus(dissenter)}};
}

ChangedKeys keysOf(CFArrayRef array) {
  ChangedKeys keys;
  const auto values = valueOf(array);
  if (!values || values->asArray() == nullptr) return keys;
  for (const Value& value : *values->asArray()) {
    if (const std::string* key = value.asText()) keys.push_back(*key);
  }
  return keys;
}

}  // namespace

/// One command, until its answer. Kept by the list of open ones, and by whoever carries it out or answers it.
struct SessionState::Command : std::enable_shared_from_this<Command> {
  Command(std::shared_ptr<SessionState> s, CF<DADiskRef> d, Ask a, CommandCompletion c, void* p)
      : state(std::move(s)), disk(std::move(d)), ask(std::move(a)), completion(c), context(p) {}
  const std::shared_ptr<SessionState> state;
  const CF<DADiskRef> disk;
  const Ask ask;
  const CommandCompletion completion;
  void* const context;
};

void SessionState::setQueue(std::shared_ptr<SerialQueue> queue) {
  const dispatch_queue_t platformsQueue = queue == nullptr ? nullptr : dispatchQueueOf(*queue);
  if (platformsQueue == nullptr) fatal("a session needs a queue of this platform");
  queue_ = std::move(queue);
  DASessionSetDispatchQueue(session(), platformsQueue);
}

/// Each registration is a round trip to the daemon. What is mounted between two of them would be lost if
/// appeared came first; a change of a disk that has not appeared is ignored, and appeared has it all.
void SessionState::registerCallbacks(const DiskCallbacks& callbacks, void* context) {
  if (queue_ == nullptr) fatal("registerCallbacks needs a queue to call back on");
  if (std::exchange(isRegistered_, true)) fatal("registerCallbacks may be called once");
  callbacks_ = callbacks;
  context_ = context;
  DARegisterDiskDescriptionChangedCallback(session(), nullptr, nullptr, &changed, this);
  DARegisterDiskDisappearedCallback(session(), nullptr, &disappeared, this);
  DARegisterDiskAppearedCallback(session(), nullptr, &appeared, this);
  if (callbacks_.presentDisksTold != nullptr) tellWhenQuiet();
}

/// The platform has no word for the end of its report.
void SessionState::tellWhenQuiet() {
  queue_->after(kQuietPeriod, [weak = weak_from_this(), before = appearances_.load()] {
    const auto state = weak.lock();
    if (state == nullptr || state->callbacks_.presentDisksTold == nullptr) return;
    if (state->appearances_ != before) return state->tellWhenQuiet();
    state->callbacks_.presentDisksTold(state->context_);
  });
}

/// The platform starts its tasks by itself: the scope makes the queue current in them, at any depth.
void SessionState::runOnQueue(const std::function<void()>& task) const {
  const QueueScope scope(dispatchQueueOf(*queue_), queue_->label());
  runOrStop(task, queue_->label());
}

void SessionState::appeared(DADiskRef disk, void* context) noexcept {
  const auto state =
      static_cast<SessionState*>(context)->shared_from_this();  // the callback may end the session
  ++state->appearances_;
  MacDisk held(CF<DADiskRef>::share(disk));
  state->runOnQueue([&] { state->callbacks_.appeared(&held, state->context_); });
}

void SessionState::disappeared(DADiskRef disk, void* context) noexcept {
  const auto state =
      static_cast<SessionState*>(context)->shared_from_this();  // the callback may end the session
  MacDisk held(CF<DADiskRef>::share(disk));
  state->runOnQueue([&] { state->callbacks_.disappeared(&held, state->context_); });
}

void SessionState::changed(DADiskRef disk, CFArrayRef keys, void* context) noexcept {
  const auto state =
      static_cast<SessionState*>(context)->shared_from_this();  // the callback may end the session
  MacDisk held(CF<DADiskRef>::share(disk));
  const ChangedKeys names = keysOf(keys);
  state->runOnQueue([&] { state->callbacks_.descriptionChanged(&held, &names, state->context_); });
}

void SessionState::carryOut(CF<DADiskRef> disk, Ask ask, CommandCompletion completion, void* context) {
  if (queue_ == nullptr) fatal("a command needs a queue to answer on");
  auto command =
      std::make_shared<Command>(shared_from_this(), std::move(disk), std::move(ask), completion, context);
  {
    const MutexLock lock(mutex_);
    open_.insert(command);
  }
  dispatch_async_f(
      dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0),
      new std::shared_ptr<Command>(std::move(command)), [](void* p) noexcept {
        const std::unique_ptr<std::shared_ptr<Command>> held(static_cast<std::shared_ptr<Command>*>(p));
        (*held)->ask((*held)->disk.get(), held->get());
      });
}

/// On the session's queue; but a refusal on the spot comes before the request returns, on the asking thread.
void SessionState::answered(DADiskRef disk, DADissenterRef dissenter, void* context) noexcept {
  const auto command = static_cast<Command*>(context)->shared_from_this();
  SessionState& state = *command->state;
  auto record = recordOf(dissenter);
  if (state.queue_->isCurrent())
    return state.runOnQueue([&] { state.deliver(command, disk, record ? &*record : nullptr); });
  state.queue_->async([command, held = CF<DADiskRef>::share(disk), record = std::move(record)] {
    command->state->deliver(command, held.get(), record ? &*record : nullptr);
  });
}

/// On the session's queue, as `closeOnQueue`: a command that is not in the list any more belongs to a session
/// that has ended.
void SessionState::deliver(const std::shared_ptr<Command>& command, DADiskRef disk,
                           const Dictionary* dissenter) {
  {
    const MutexLock lock(mutex_);
    if (open_.erase(command) == 0) return;
  }
  MacDisk held(CF<DADiskRef>::share(disk));
  command->completion(&held, dissenter, command->context);
}

void SessionState::close() {
  if (queue_ == nullptr) return;
  if (queue_->isCurrent()) return closeOnQueue();
  queue_->sync([this] { closeOnQueue(); });
}

/// The platform cancels its source from its own queue, so nothing runs after this.
void SessionState::closeOnQueue() {
  DAUnregisterCallback(session(), reinterpret_cast<void*>(&changed), this);
  DAUnregisterCallback(session(), reinterpret_cast<void*>(&disappeared), this);
  DAUnregisterCallback(session(), reinterpret_cast<void*>(&appeared), this);
  DASessionSetDispatchQueue(session(), nullptr);
  callbacks_.presentDisksTold = nullptr;
  std::set<std::shared_ptr<Command>> dropped;  // freed without the mutex
  const MutexLock lock(mutex_);
  dropped.swap(open_);
}

}  // namespace kmv::macos
