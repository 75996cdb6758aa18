// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/DiskArbitrationSession.h"
#include "platform/linux/LinuxOptions.h"
#include "platform/linux/devices/BlockDevices.h"
#include "platform/linux/devices/ProbePool.h"
#include "platform/linux/mounts/DutyCycle.h"
#include "platform/linux/mounts/MountInfoFile.h"
#include "platform/linux/mounts/MountTable.h"
#include "platform/linux/session/CommandThreads.h"
#include "platform/linux/session/Commands.h"
#include "platform/linux/session/DeviceFollower.h"
#include "platform/linux/session/DiskModel.h"
#include "platform/linux/session/RetryTimer.h"
#include "platform/posix/FileDescriptor.h"

namespace kmv {

/// Follows block devices and the mount table on one thread of its own, which sleeps until one of them
/// changes: no timer, no polling, but for what could not be read yet. That thread makes no system call that a
/// mounted file system or a device has to answer. Failure: what cannot be watched here (no netlink, no /proc) is
/// read once and then silent; without threads or descriptors it is tried again every second.
class LinuxSession final : public DiskArbitrationSession {
 public:
  LinuxSession(LinuxOptions options, std::shared_ptr<MountTable> mounts);
  /// Stops the thread. Callbacks that wait on the queue are dropped; one that runs is not waited for, but
  /// commands that run are.
  ~LinuxSession() override;

  void setQueue(std::shared_ptr<SerialQueue> queue) override;
  void registerCallbacks(const DiskCallbacks& callbacks, void* context) override;
  std::unique_ptr<Disk> diskFromVolumePath(const URL& volume) override;
  void unmount(const Disk& disk, CommandCompletion completion, void* context) override;
  void rename(const Disk& disk, const std::string& newName, CommandCompletion completion,
              void* context) override;

 private:
  using FoundDisk = std::optional<MountedDisk>;
  /// Somebody waits for the drive at a mount point, as it is after the event thread looked at the machine
  /// once more.
  struct Question {
    std::string point;
    bool readAnew = false;  // the medium was written to: what it says of itself is to be read again first
    std::promise<FoundDisk> answer;
  };
  FoundDisk mountedDiskAt(const std::string& point, bool readAnew = false);
  FoundDisk describeWithoutListening(const std::string& point) const;
  /// A command to carry out, and its completion.
  struct Command {
    std::function<Dissent(const TargetVolume&)> carryOut;
    CommandCompletion completion = nullptr;
    void* context = nullptr;
    bool changesMedium = false;
  };
  void start(const Disk& disk, const Command& command);
  void finish(const MountedDisk& before, Dissent dissent, const Command& command);
  void takeQuestions();
  void readAnew(const std::string& point);
  void answerQuestions();

  bool tryToListen();
  void tryAgainLater();
  void run();
  void start();
  /// Whose news there are.
  struct News {
    bool ofOthers = false;  // questions, answers of probes, mounts that another thread heard of
    bool ofDevices = false;
    bool ofMounts = false;
  };
  News waitForNews();
  void takeMountNews();
  void watchMounts();
  bool readAgain();
  std::optional<DiskModel::Clock::time_point> nextDeadline();
  void takeAnswers();
  void settle();
  void deliver();
  void tellWhenPresentDisksAreTold();

  const LinuxOptions options_;
  const std::shared_ptr<MountTable> mounts_;
  const Commands commands_;
  const BlockDevices devices_;
  std::shared_ptr<SerialQueue> queue_;
  DiskCallbacks callbacks_;
  void* context_ = nullptr;
  bool isRegistered_ = false;
  std::shared_ptr<std::atomic<bool>> stopped_ = std::make_shared<std::atomic<bool>>(false);

  /// The end of the attempts to start, which run on the queue.
  struct Beginning;
  const std::shared_ptr<Beginning> beginning_;

  // From here on of the event thread, once it runs.
  FileDescriptor wake_;
  FileDescriptor poll_;
  MountInfoFile mountReports_;
  int mountDescriptor_ = -1;  // this one's, or the table's
  bool namesMounts_ = false;  // the table's records do, and wait to be taken
  std::unique_ptr<MountFollower> mountNews_;
  DutyCycle mountLooks_;
  bool mountNewsWait_ = false;  // until their next look
  std::unique_ptr<ProbePool> probes_;
  std::unique_ptr<DiskModel> model_;
  std::unique_ptr<DeviceFollower> deviceNews_;
  std::vector<DiskEvent> untold_;
  bool arePresentDisksTold_ = false;
  std::optional<std::vector<DeviceNumber>> presentDisksAwaited_;  // those of the start; none before it

  RetryTimer retry_;

  std::vector<Question> open_;  // taken, but not answered yet

  Mutex questionsMutex_;
  std::vector<Question> questions_ KMV_GUARDED_BY(questionsMutex_);
  bool listens_ KMV_GUARDED_BY(questionsMutex_) = false;  // the event thread runs and answers

  std::thread thread_;
  CommandThreads commandThreads_;  // the last member: commands that run use the others
};

}  // namespace kmv
