// SPDX-License-Identifier: MIT
#pragma once

#include "support/Testing.h"

namespace kmv::integration {

/// Starts the shared registry on this machine and hears what it announces about drives below one folder.
/// Whatever else the machine has is left out. Thread: the one that made it, which is the main thread
/// meanwhile.
class Observer {
 public:
  using Lines = std::vector<std::string>;

  explicit Observer(std::string folder);

  KMVDiskArbiter& arbiter() { return KMVDiskArbiter::sharedInstance(); }

  /// Runs the main queue until exactly these announcements came since the last call ("added a", "removed
  /// b/c": paths below the folder), and then a little longer, in which nothing more may come. A gtest failure
  /// otherwise.
  void expect(const Lines& lines);

  /// Runs the main queue until `condition` holds; false when it does not in time.
  bool waitFor(const std::function<bool()>& condition);

  /// Everything announced so far.
  const Lines& all() const { return lines_; }

  /// The names of the present drives below the folder, in ascending order.
  Lines present();
  /// The content of the drive mounted there; null when there is none.
  DictionarySnapshot drive(const std::string& name);
  /// The unmounted disk of this device, waited for; null when it does not come.
  DictionarySnapshot unmounted(const std::string& bsdName, bool isWaitedFor = true);
  bool isUnmounted(const std::string& bsdName) { return findUnmounted(bsdName) != nullptr; }
  /// Waits until no unmounted disk of this device is listed any more.
  bool isForgotten(const std::string& bsdName);
  /// The rule that hides the mount of this name; empty when none does.
  std::string hidingRule(const std::string& name);

  /// No drive was announced twice without having gone; a gtest failure otherwise.
  void expectAlternation() const;

  /// Compares the registry's drives with the mounted devices, none of which may be mounted twice; a gtest failure where
  /// they differ.
  void compareWithMountTable();

 private:
  void listen(std::string_view name, const std::string& word);
  void pump(std::chrono::milliseconds limit);
  DictionarySnapshot findUnmounted(const std::string& bsdName);
  std::optional<std::string> nameOf(const std::string& path) const;

  std::string folder_;
  Lines lines_;
  std::size_t expected_ = 0;  // lines that were expected before
  std::vector<NotificationCenter::Registration> registrations_;
};

}  // namespace kmv::integration
