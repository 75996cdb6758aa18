// SPDX-License-Identifier: MIT
#include "platform/linux/session/LinuxSession.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <system_error>
#include <utility>

#include "base/Degradation.h"
#include "base/Fatal.h"
#include "platform/linux/devices/Description.h"
#include "platform/linux/mounts/PointType.h"
#include "platform/linux/mounts/VolumeRules.h"
#include "platform/linux/queues/Threads.h"
#include "platform/linux/session/AppearanceClock.h"
#include "platform/linux/session/DescribedDisk.h"
#include "platform/linux/session/MountedVolume.h"
#include "platform/linux/session/Polling.h"
#include "platform/posix/SystemFiles.h"

namespace kmv {
namespace {

constexpr std::chrono::seconds kTimeBetweenStarts{1};

}  // namespace

struct LinuxSession::Beginning {
  Mutex mutex;
  bool isOver KMV_GUARDED_BY(mutex) = false;
};

LinuxSession::LinuxSession(LinuxOptions options, std::shared_ptr<MountTable> mounts)
    : options_(std::move(options)),
      mounts_(std::move(mounts)),
      commands_(options_, mounts_),
      devices_(options_),
      beginning_(std::make_shared<Beginning>()),
      mountReports_(options_) {}

LinuxSession::~LinuxSession() {
  {
    const MutexLock lock(beginning_->mutex);
    beginning_->isOver = true;
  }
  {
    const MutexLock lock(questionsMutex_);
    listens_ = false;
  }
  *stopped_ = true;
  if (!thread_.joinable()) return;
  ::eventfd_write(wake_.get(), 1);
  thread_.join();
}

void LinuxSession::setQueue(std::shared_ptr<SerialQueue> queue) {
  queue_ = std::move(queue);
}

void LinuxSession::registerCallbacks(const DiskCallbacks& callbacks, void* context) {
  if (!queue_) fatal("a disk arbitration session needs a queue before its callbacks");
  if (std::exchange(isRegistered_, true))
    fatal("callbacks can be registered with a disk arbitration session only once");
  callbacks_ = callbacks;
  context_ = context;
  // Every event needs these two threads: a moment without any to be had must not come between.
  queue_->after(std::chrono::nanoseconds(1), [] {});
  if (tryToListen()) return;
  setDegraded(kDrivesNotFollowed, true);  // which logs it once
  tryAgainLater();
}

void LinuxSession::tryAgainLater() {
  queue_->after(kTimeBetweenStarts, [this, beginning = beginning_] {
    {
      const MutexLock lock(beginning->mutex);
      if (beginning->isOver) return;
      if (!tryToListen()) return tryAgainLater();
    }
    setDegraded(kDrivesNotFollowed, false);
  });
}

/// False when the system lacks what it takes.
bool LinuxSession::tryToListen() {
  mountNews_.reset();  // an earlier try's, which wakes by an earlier descriptor
  wake_ = FileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  poll_ = FileDescriptor(::epoll_create1(EPOLL_CLOEXEC));
  if (!wake_ || !poll_) return false;
  // Subscribe first, enumerate second, so that no event is lost: what happens in between is seen twice, and
  // the difference is empty then.
  mountNews_ = std::make_unique<MountFollower>(mounts_, [wake = wake_.get()] { ::eventfd_write(wake, 1); });
  watch(poll_, wake_.get(), EPOLLIN);
  watchMounts();
  probes_ = std::make_unique<ProbePool>(
      [options = options_](const ProbeRequest& request) { return probeDevice(options, request); },
      [wake = wake_.get()] { ::eventfd_write(wake, 1); });
  model_ = std::make_unique<DiskModel>(
      DiskModel::Outside{[this](const MountEntry& mount) { return devices_.readBehind(mount); },
                         [this](const MountEntry& mount, bool isLocal) {
                           return pointIsDirectory(options_.view(), mount, isLocal);
                         },
                         nextAppearanceTime, options_.probing});
  deviceNews_ = std::make_unique<DeviceFollower>(options_, *model_);
  watch(poll_, deviceNews_->descriptor(), EPOLLIN);
  // What cannot be watched here has no descriptor either: only a spare one tells that none was lacking.
  if (!FileDescriptor(::fcntl(wake_.get(), F_DUPFD_CLOEXEC, 0))) return false;
  try {
    thread_ = startThread("kmv-events", [this] { run(); });
  } catch (const std::system_error&) {
    return false;
  }
  const MutexLock lock(questionsMutex_);
  listens_ = true;
  return true;
}

std::unique_ptr<Disk> LinuxSession::diskFromVolumePath(const URL& volume) {
  if (!volume.isFileURL()) return nullptr;
  FoundDisk mounted = mountedDiskAt(volume.path());
  return mounted ? std::make_unique<MountedVolume>(std::move(*mounted)) : nullptr;
}

void LinuxSession::unmount(const Disk& disk, CommandCompletion completion, void* context) {
  const auto carryOut = [this](const TargetVolume& volume) { return commands_.unmount(volume); };
  start(disk, {carryOut, completion, context, /*changesMedium=*/false});
}

void LinuxSession::rename(const Disk& disk, const std::string& newName, CommandCompletion completion,
                          void* context) {
  const auto carryOut = [this, newName](const TargetVolume& volume) {
    return commands_.rename(volume, newName);
  };
  start(disk, {carryOut, completion, context, /*changesMedium=*/true});
}

void LinuxSession::start(const Disk& disk, const Command& command) {
  const auto* const volume = dynamic_cast<const MountedVolume*>(&disk);
  if (volume == nullptr) fatal("a command needs a disk that diskFromVolumePath gave");
  if (!queue_) fatal("a disk arbitration session needs a queue before a command");
  const bool started =
      commandThreads_.start(volume->disk().mount.id, [this, before = volume->disk(), command] {
        finish(before, command.carryOut(targetOf(before.mount)), command);
      });
  if (!started) finish(volume->disk(), Dictionary{{key::kDissenterStatus, dissent::kNoResources}}, command);
}

/// What the command did is looked at before its end is told, so that the events it brings are queued first.
void LinuxSession::finish(const MountedDisk& before, Dissent dissent, const Command& command) {
  const FoundDisk after = mountedDiskAt(before.mount.point, command.changesMedium);
  // Another volume may have taken the place.
  const bool isThere =
      after && after->mount.device == before.mount.device && after->mount.root == before.mount.root;
  Dictionary description = isThere ? after->description : before.description;
  if (!isThere) description.remove(key::kVolumePath);
  queue_->async(
      [description = std::move(description), dissent = std::move(dissent), command, stopped = stopped_] {
        if (*stopped) return;
        DescribedDisk disk(description);
        command.completion(&disk, dissent ? &*dissent : nullptr, command.context);
      });
}

LinuxSession::FoundDisk LinuxSession::mountedDiskAt(const std::string& point, bool readAnew) {
  refuseInForkedChild("the event thread was asked");
  std::future<FoundDisk> answer;
  {
    const MutexLock lock(questionsMutex_);
    if (listens_) answer = questions_.emplace_back(Question{point, readAnew, {}}).answer.get_future();
  }
  if (!answer.valid()) return describeWithoutListening(point);
  ::eventfd_write(wake_.get(), 1);
  return answer.get();
}

/// Before anybody listens there is no event thread to ask: the machine is looked at once, here.
LinuxSession::FoundDisk LinuxSession::describeWithoutListening(const std::string& point) const {
  std::optional<MountEntry> mount;
  mounts_->readAnew([&](const MountTree& tree) {
    tree.forEach([&](const MountEntry& entry, std::string_view rule) {
      if (rule.empty() && entry.point == point) mount = entry;
    });
  });
  if (!mount) return std::nullopt;
  std::optional<BlockDevice> device;
  try {
    if (isBlockBacked(*mount)) device = devices_.readBehind(*mount);
  } catch (const NotReadable&) {
    return std::nullopt;  // rather none than one that is described wrongly
  }
  if (device && options_.probing) {
    if (auto facts = probeDevice(options_, {*device, mount->kind}).facts) device->facts = std::move(*facts);
  }
  Dictionary description = describeDisk(device ? &*device : nullptr, &*mount, nextAppearanceTime());
  return MountedDisk{std::move(description), std::move(*mount)};
}

void LinuxSession::takeQuestions() {
  const std::size_t known = open_.size();
  {
    const MutexLock lock(questionsMutex_);
    for (Question& question : questions_) open_.push_back(std::move(question));
    questions_.clear();
  }
  for (std::size_t i = known; i < open_.size(); ++i) {
    if (open_[i].readAnew) readAnew(open_[i].point);
  }
}

/// The kernel does not announce what is written to a mounted medium.
void LinuxSession::readAnew(const std::string& point) {
  const MountedDisk* const disk = model_->diskAt(point);
  if (disk == nullptr || !isBlockBacked(disk->mount)) return;
  try {
    if (auto device = devices_.readBehind(disk->mount)) model_->deviceSeen(std::move(*device));
  } catch (const NotReadable&) {
    return;  // the model still has it as it was, and its next event reads it again
  }
}

/// After the model told what is. A volume whose device is still being identified is waited for as long as the model
/// itself does.
void LinuxSession::answerQuestions() {
  std::erase_if(open_, [this](Question& question) {
    const MountedDisk* disk = model_->diskAt(question.point);
    if ((disk == nullptr || question.readAnew) && model_->isAwaitedAt(question.point)) return false;
    question.answer.set_value(disk == nullptr ? FoundDisk() : FoundDisk(*disk));
    return true;
  });
}

void LinuxSession::run() {
  start();
  while (!*stopped_) {
    deliver();
    tellWhenPresentDisksAreTold();
    answerQuestions();
    const News news = waitForNews();
    // Questions first, before the machine is looked at: the answer is to be no older than the question.
    if (news.ofOthers) takeQuestions();
    const bool isRetry = readAgain();
    if (news.ofOthers || news.ofDevices) deviceNews_->follow();
    if (isRetry || mountNewsWait_ || news.ofOthers || news.ofDevices || news.ofMounts) takeMountNews();
    if (news.ofOthers) takeAnswers();
  }
  probes_.reset();
  takeQuestions();
  for (Question& question : std::exchange(open_, {})) question.answer.set_value(std::nullopt);
}

void LinuxSession::start() {
  deviceNews_->list();
  takeMountNews();
  model_->startUpFinished();
}

/// Idempotent: the descriptor may be missing for a while.
void LinuxSession::watchMounts() {
  mountDescriptor_ = mounts_->descriptor();
  namesMounts_ = mountDescriptor_ >= 0;
  if (!namesMounts_) mountDescriptor_ = mountReports_.descriptor();
  watch(poll_, mountDescriptor_, namesMounts_ ? EPOLLIN : mountReports_.epollEvents());
}

LinuxSession::News LinuxSession::waitForNews() {
  News news;
  std::array<epoll_event, 3> ready{};
  const int count = ::epoll_wait(poll_.get(), ready.data(), static_cast<int>(ready.size()),
                                 millisecondsUntil(nextDeadline()));
  for (int i = 0; i < count; ++i) {
    const int descriptor = ready[static_cast<std::size_t>(i)].data.fd;
    eventfd_t ignored = 0;
    if (descriptor == wake_.get()) news.ofOthers = ::eventfd_read(wake_.get(), &ignored) == 0;
    if (descriptor == mountDescriptor_) news.ofMounts = true;
    if (descriptor != wake_.get() && descriptor != mountDescriptor_) news.ofDevices = true;
  }
  return news;
}

/// Without descriptors nothing is known of what could not be read; it is retried until it is. The mounts are looked
/// at whatever woke the thread.
bool LinuxSession::readAgain() {
  if (!retry_.isDue(DiskModel::Clock::now())) return false;
  watchMounts();
  deviceNews_->readAgain();
  model_->readAgain();
  return true;
}

std::optional<DiskModel::Clock::time_point> LinuxSession::nextDeadline() {
  const bool isIncomplete = deviceNews_->hasUnread() || model_->hasUnread();
  setDegraded(kDevicesUnreadable, isIncomplete);
  const auto retry = retry_.plan(isIncomplete || !mounts_->isReadable(), DiskModel::Clock::now());
  const auto probe = model_->nextDeadline();
  auto next = retry && probe ? std::min(*retry, *probe) : (retry ? retry : probe);
  if (mountNewsWait_) next = std::min(next.value_or(mountLooks_.next()), mountLooks_.next());
  return next;
}

/// One by one: what was unmounted and mounted again in between is another mount of the same medium, or of
/// another one, and both are told. A long table that changes all the time is not looked at each time, unless
/// somebody asks; records that name the mounts are taken at once, before those are gone.
void LinuxSession::takeMountNews() {
  const auto begin = DutyCycle::Clock::now();
  mountNewsWait_ = !namesMounts_ && open_.empty() && begin < mountLooks_.next();
  if (mountNewsWait_) return;
  for (const auto& delta : mountNews_->take()) {
    model_->mountsChanged(*delta);
    settle();
  }
  setDegraded(kMountTableUnreadable, !mounts_->isReadable());
  mountLooks_.looked(begin, DutyCycle::Clock::now());
}

void LinuxSession::takeAnswers() {
  for (ProbeAnswer& answer : probes_->takeAnswers()) {
    if (answer.result.isDeferred) {
      model_->probeDeferred(answer.number, answer.ticket, DiskModel::Clock::now());
    } else {
      model_->probeFinished(answer.number, answer.ticket, std::move(answer.result.facts));
    }
  }
}

void LinuxSession::settle() {
  std::vector<DiskEvent> events = model_->settle(DiskModel::Clock::now());
  std::move(events.begin(), events.end(), std::back_inserter(untold_));
}

/// After `deliver`. A disk that is plugged in meanwhile is not waited for.
void LinuxSession::tellWhenPresentDisksAreTold() {
  if (arePresentDisksTold_) return;
  const auto awaited = model_->awaitedDevices();
  if (!presentDisksAwaited_) presentDisksAwaited_ = awaited;
  std::erase_if(*presentDisksAwaited_, [&](DeviceNumber number) {
    return std::find(awaited.begin(), awaited.end(), number) == awaited.end();
  });
  if (!presentDisksAwaited_->empty()) return;
  arePresentDisksTold_ = true;
  queue_->async([tell = callbacks_.presentDisksTold, context = context_, stopped = stopped_] {
    if (tell != nullptr && !*stopped) tell(context);
  });
}

void LinuxSession::deliver() {
  settle();
  probes_->start(model_->takeProbeRequests());
  if (untold_.empty()) return;
  queue_->async([events = std::make_shared<std::vector<DiskEvent>>(std::exchange(untold_, {})),
                 callbacks = callbacks_, context = context_, stopped = stopped_] {
    for (DiskEvent& event : *events) {
      if (!*stopped) tell(event, callbacks, context);
    }
  });
}

}  // namespace kmv
